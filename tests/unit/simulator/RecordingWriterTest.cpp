#include "simulator/RecordingWriter.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

#include "simulator/Recording.h"
#include "simulator/SimulatedMaster.h"

namespace simulator {
namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;

/// Limits the size of files that this process writes.
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

    Printer Print() {
        return [this](const std::string& text) { printed.push_back(text); };
    }

    std::string folder{mkdtemp(std::string("/tmp/recording.XXXXXX").data())};
    std::string path = folder + "/cell.rec";
    std::vector<std::string> printed;
};

TEST_F(RecordingWriterTest, WritesAReadableRecording) {
    RecordingWriter writer(path, Print());
    writer.Write(2, RecordedKind::Plug, {}, Clock::now());
    writer.StartClock();
    const TimePoint start = Clock::now();
    writer.Write(2, RecordedKind::ToMaster, "ID?\n", start + milliseconds(500));
    writer.Write(2, RecordedKind::FromMaster, std::string("\0 \xff", 3), start + milliseconds(750));
    const Recording recording = ReadRecording(path);  // while it is being written
    const auto& events = recording.masters.at(2);
    ASSERT_EQ(events.size(), 3U);
    EXPECT_EQ(events[0].time, microseconds(0)) << "before StartClock()";
    EXPECT_GE(events[1].time, milliseconds(500));
    EXPECT_EQ(events[2].time - events[1].time, milliseconds(250));
    EXPECT_EQ(events[2].bytes, std::string("\0 \xff", 3));
    EXPECT_TRUE(writer.IsComplete());
}

TEST_F(RecordingWriterTest, WritesItsStartTime) {
    const RecordingWriter writer(path, Print());
    EXPECT_TRUE(Text().starts_with("pellix-recording 1\n# begun 20")) << Text();
}

TEST_F(RecordingWriterTest, DoesNotOverwriteAFile) {
    std::ofstream(path) << "content";
    EXPECT_THROW(RecordingWriter(path, Print()), std::system_error);
    EXPECT_EQ(Text(), "content");
}

TEST_F(RecordingWriterTest, RemovesARecordingWithoutEvents) {
    {
        RecordingWriter writer(path, Print());
        writer.Write(0, RecordedKind::Plug, {}, Clock::now());
        writer.StartClock();
    }
    EXPECT_FALSE(std::filesystem::exists(path));
    {
        RecordingWriter writer(path, Print());
        writer.StartClock();
        writer.Write(0, RecordedKind::Plug, {}, Clock::now());
    }
    EXPECT_TRUE(std::filesystem::exists(path));
}

TEST_F(RecordingWriterTest, EndsWithACompleteLineIfTheDiskIsFull) {
    RecordingWriter writer(path, Print());
    writer.Write(0, RecordedKind::Plug, {}, Clock::now());
    const std::string whole = Text();
    {
        const FileLimit limit(whole.size() + 10);
        writer.Write(0, RecordedKind::ToMaster, "ID?\n", Clock::now());
        writer.Write(0, RecordedKind::ToMaster, "ID?\n", Clock::now());
    }
    writer.Write(0, RecordedKind::ToMaster, "ID?\n", Clock::now());
    EXPECT_EQ(Text(), whole);
    EXPECT_FALSE(writer.IsComplete());
    EXPECT_EQ(printed,
              std::vector<std::string>{"error: cannot write " + path +
                                       ": No space left on device; the recording ends here"});
}

MasterSettings WithoutStream() {
    MasterSettings settings;
    settings.streamRate = 0;
    return settings;
}

class RecordingMasterTest : public testing::Test {
protected:
    ~RecordingMasterTest() override { std::filesystem::remove_all(folder); }

    /// The recorded events, each as "word bytes".
    std::vector<std::string> Recorded() const {
        std::vector<std::string> texts;
        const Recording recording = ReadRecording(path);
        for (const RecordedEvent& event : recording.masters.at(3)) {
            texts.push_back(std::string(RecordedWord(event.kind)) + " " + event.bytes);
        }
        return texts;
    }

    std::string folder{mkdtemp(std::string("/tmp/recording.XXXXXX").data())};
    std::string path = folder + "/cell.rec";
    RecordingWriter writer{path, [](const std::string& text) { FAIL() << text; }};
    TimePoint now{std::chrono::hours(1)};
    RecordingMaster master{
        std::make_unique<SimulatedMaster>(WithoutStream(), *FindGripperModel("HVA"), Bytes{'H'},
                                          Bytes{'1'}, now),
        3, writer};
};

TEST_F(RecordingMasterTest, RecordsReceivedAndSentBytes) {
    master.PowerUp(now);
    master.Receive("ID", now);
    master.Receive("", now);
    EXPECT_EQ(master.NextText(now), "");
    master.Receive("?\n", now);
    const std::string answer = "ACK ID\nID=PELLIX\nFIN ID\n";
    EXPECT_EQ(master.NextText(now), answer);
    EXPECT_EQ(Recorded(), (std::vector<std::string>{"plug ", "> ID", "> ?\n", "< " + answer}));
}

TEST_F(RecordingMasterTest, RecordsHangUpsAndUnplugs) {
    master.PowerUp(now);
    master.HangUp(false, now);
    master.HangUp(true, now);
    master.PowerUp(now);
    master.HangUp(true, now);
    EXPECT_EQ(Recorded(),
              (std::vector<std::string>{"plug ", "hangup ", "unplug ", "plug ", "unplug "}));
}

TEST_F(RecordingMasterTest, IsDueWhenTheMasterIsDue) {
    master.PowerUp(now);
    EXPECT_EQ(master.NextDue(), std::nullopt);
    master.Receive("RESTART()\n", now);
    EXPECT_EQ(master.NextDue(), now);
}

}  // namespace
}  // namespace simulator
