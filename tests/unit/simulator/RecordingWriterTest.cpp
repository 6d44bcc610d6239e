#include "simulator/RecordingWriter.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <system_error>
#include <vector>

#include "simulator/Recording.h"

namespace simulator {
namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;

/// Lets files of this process grow to so many bytes and no further.
class FileLimit {
public:
    explicit FileLimit(rlim_t size) : signalBefore(std::signal(SIGXFSZ, SIG_IGN)) {
        getrlimit(RLIMIT_FSIZE, &before);
        const rlimit limit{size, before.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    FileLimit(const FileLimit&) = delete;
    FileLimit& operator=(const FileLimit&) = delete;
    ~FileLimit() {
        setrlimit(RLIMIT_FSIZE, &before);
        std::signal(SIGXFSZ, signalBefore);
    }

private:
    rlimit before{};
    sighandler_t signalBefore;
};

class RecordingWriterTest : public testing::Test {
protected:
    ~RecordingWriterTest() override { std::filesystem::remove_all(folder); }

    std::string Text() const {
        std::ifstream file(path);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    RecordingWriter::Tell TellTest() {
        return [this](const std::string& text) { told.push_back(text); };
    }

    std::string folder{mkdtemp(std::string("/tmp/recording.XXXXXX").data())};
    std::string path = folder + "/cell.rec";
    std::vector<std::string> told;
};

TEST_F(RecordingWriterTest, WritesWhatCanBeReadAgain) {
    RecordingWriter writer(path, TellTest());
    writer.Write(2, RecordedKind::Plug, {}, Clock::now());
    writer.StartClock();
    const TimePoint start = Clock::now();
    writer.Write(2, RecordedKind::ToMaster, "ID?\n", start + milliseconds(500));
    writer.Write(2, RecordedKind::FromMaster, std::string("\0 \xff", 3), start + milliseconds(750));
    const Recording recording = ReadRecording(path);  // while it is open
    const auto& events = recording.masters.at(2);
    ASSERT_EQ(events.size(), 3U);
    EXPECT_EQ(events[0].time, microseconds(0)) << "before the clock was started";
    EXPECT_GE(events[1].time, milliseconds(500));
    EXPECT_EQ(events[2].time - events[1].time, milliseconds(250));
    EXPECT_EQ(events[2].bytes, std::string("\0 \xff", 3));
    EXPECT_TRUE(writer.IsWhole());
}

TEST_F(RecordingWriterTest, SaysWhenItWasBegun) {
    const RecordingWriter writer(path, TellTest());
    EXPECT_TRUE(Text().starts_with("pellix-recording 1\n# begun 20")) << Text();
}

TEST_F(RecordingWriterTest, AnotherRecordingIsNotOverwritten) {
    std::ofstream(path) << "evidence";
    EXPECT_THROW(RecordingWriter(path, TellTest()), std::system_error);
    EXPECT_EQ(Text(), "evidence");
}

TEST_F(RecordingWriterTest, AFileInWhichNothingHappenedIsRemoved) {
    {
        RecordingWriter writer(path, TellTest());
        writer.Write(0, RecordedKind::Plug, {}, Clock::now());
        writer.StartClock();
    }
    EXPECT_FALSE(std::filesystem::exists(path));
    {
        RecordingWriter writer(path, TellTest());
        writer.StartClock();
        writer.Write(0, RecordedKind::Plug, {}, Clock::now());
    }
    EXPECT_TRUE(std::filesystem::exists(path));
}

TEST_F(RecordingWriterTest, WithoutRoomItEndsWithItsLastWholeLine) {
    RecordingWriter writer(path, TellTest());
    writer.Write(0, RecordedKind::Plug, {}, Clock::now());
    const std::string whole = Text();
    {
        const FileLimit limit(whole.size() + 10);
        writer.Write(0, RecordedKind::ToMaster, "ID?\n", Clock::now());
        writer.Write(0, RecordedKind::ToMaster, "ID?\n", Clock::now());
    }
    writer.Write(0, RecordedKind::ToMaster, "ID?\n", Clock::now());
    EXPECT_EQ(Text(), whole);
    EXPECT_FALSE(writer.IsWhole());
    EXPECT_EQ(told,
              std::vector<std::string>{"error: " + path + " ends here: No space left on device"});
}

}  // namespace
}  // namespace simulator
