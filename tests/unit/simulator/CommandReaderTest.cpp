#include "simulator/CommandReader.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "simulator/FileDescriptor.h"
#include "tests/support/WaitFor.h"

namespace simulator {
namespace {

using std::chrono::milliseconds;
using Lines = std::vector<std::string>;

/// A reader with a pipe as its input. "wait N" pauses for N ms.
class CommandReaderTest : public testing::Test {
protected:
    CommandReaderTest() {
        std::array<int, 2> ends{};
        EXPECT_EQ(pipe(ends.data()), 0);
        readEnd = FileDescriptor(ends[0]);
        writeEnd = FileDescriptor(ends[1]);
    }

    ~CommandReaderTest() override { Stop(); }

    void Create(const std::string& script) {
        const std::vector<CommandSource> sources{{script}, {"", readEnd.Get()}};
        reader = std::make_unique<CommandReader>(
            sources, [this](const std::string& line) { return Execute(line); });
    }

    void Start() {
        thread = std::thread([this] { reader->Run(); });
    }

    void Stop() {
        if (thread.joinable()) {
            reader->Stop();
            thread.join();
        }
    }

    milliseconds Execute(const std::string& line) {
        const std::lock_guard lock(mutex);
        lines.push_back(line);
        return milliseconds(line.starts_with("wait ") ? std::stoi(line.substr(5)) : 0);
    }

    Lines Executed() {
        const std::lock_guard lock(mutex);
        return lines;
    }

    bool WaitForLines(const Lines& expected) {
        return support::WaitFor([this, &expected] { return Executed() == expected; });
    }

    void Type(const std::string& text) const {
        ASSERT_EQ(write(writeEnd.Get(), text.data(), text.size()),
                  static_cast<ssize_t>(text.size()));
    }

    FileDescriptor readEnd;
    FileDescriptor writeEnd;
    std::unique_ptr<CommandReader> reader;
    std::thread thread;
    std::mutex mutex;  // guards lines
    Lines lines;
};

TEST_F(CommandReaderTest, PrepareExecutesTheScriptUpToItsFirstPause) {
    Create("one\nwait 60000\ntwo\n");
    reader->Prepare();
    EXPECT_EQ(Executed(), (Lines{"one", "wait 60000"}));
}

TEST_F(CommandReaderTest, ContinuesTheScriptAfterItsPause) {
    Create("wait 30\ntwo\n");
    const auto start = Clock::now();
    Start();
    ASSERT_TRUE(WaitForLines({"wait 30", "two"}));
    EXPECT_GE(Clock::now() - start, milliseconds(30));
}

TEST_F(CommandReaderTest, ReadsInputWhileTheScriptPauses) {
    Create("wait 60000\nnever\n");
    reader->Prepare();
    Start();
    Type("typed\n");
    EXPECT_TRUE(WaitForLines({"wait 60000", "typed"}));
}

TEST_F(CommandReaderTest, AcceptsPartialAndMultipleLines) {
    Create("");
    reader->Prepare();
    Start();
    Type("on");
    Type("e\ntwo\nthr");
    Type("ee\n");
    EXPECT_TRUE(WaitForLines({"one", "two", "three"}));
}

TEST_F(CommandReaderTest, AcceptsALastLineWithoutLineFeed) {
    Create("");
    reader->Prepare();
    Start();
    Type("last");
    writeEnd.Close();
    EXPECT_TRUE(WaitForLines({"last"}));
}

TEST_F(CommandReaderTest, ContinuesAfterTheEndOfInput) {
    Create("wait 50\nscript\n");
    writeEnd.Close();
    Start();
    EXPECT_TRUE(support::WaitFor([this] {
        const Lines executed = Executed();
        return !executed.empty() && executed.back() == "script";
    }));
}

TEST_F(CommandReaderTest, StopsDuringAPause) {
    Create("wait 60000\nnever\n");
    Start();
    ASSERT_TRUE(WaitForLines({"wait 60000"}));
    const auto start = Clock::now();
    Stop();
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(30));
    EXPECT_EQ(Executed(), Lines{"wait 60000"});
}

}  // namespace
}  // namespace simulator
