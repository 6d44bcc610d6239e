#include "simulator/Recording.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "simulator/TextTools.h"

namespace simulator {
namespace {

using std::chrono::microseconds;

TEST(RecordedEventTest, FormatsALineOfPlainText) {
    EXPECT_EQ(FormatRecordedEvent({microseconds(1250000), 0, RecordedKind::ToMaster, "ID?\n"}),
              R"(    1.250000 0 > ID?\n)");
    EXPECT_EQ(
        FormatRecordedEvent({microseconds(98765000042), 12, RecordedKind::FromMaster, "\xff"}),
        R"(98765.000042 12 < \xff)");
    EXPECT_EQ(FormatRecordedEvent({microseconds(0), 3, RecordedKind::Plug, ""}),
              "    0.000000 3 plug");
    EXPECT_EQ(FormatRecordedEvent({microseconds(0), 3, RecordedKind::Unplug, ""}),
              "    0.000000 3 unplug");
    EXPECT_EQ(FormatRecordedEvent({microseconds(0), 3, RecordedKind::HangUp, ""}),
              "    0.000000 3 hangup");
}

TEST(RecordedEventTest, PreservesBytesOfEveryValue) {
    std::string bytes = " ";
    for (int value = 0; value < 256; ++value) {
        bytes += static_cast<char>(value);
    }
    bytes += " ";
    const std::string line =
        FormatRecordedEvent({microseconds(7), 1, RecordedKind::FromMaster, bytes});
    EXPECT_EQ(
        line.find_first_not_of("0123456789abcdefghijklmnopqrstuvwxyz"
                               "ABCDEFGHIJKLMNOPQRSTUVWXYZ !\"#$%&'()*+,-./:;<=>?@[]^_`{|}~\\"),
        std::string::npos);
    const RecordedEvent event = ParseRecordedEvent(line);
    EXPECT_EQ(event.time, microseconds(7));
    EXPECT_EQ(event.master, 1U);
    EXPECT_EQ(event.kind, RecordedKind::FromMaster);
    EXPECT_EQ(event.bytes, bytes);
}

TEST(RecordedEventTest, IgnoresExtraBlanks) {
    const RecordedEvent event = ParseRecordedEvent("1.5\t0   > A  B \t\r");
    EXPECT_EQ(event.time, microseconds(1500000));
    EXPECT_EQ(event.bytes, "A  B");
    EXPECT_EQ(ParseRecordedEvent(" 2 1 unplug ").kind, RecordedKind::Unplug);
}

TEST(RecordedEventTest, RejectsInvalidLinesWithAReason) {
    const std::vector<std::pair<std::string, std::string>> invalid{
        {"", "missing time"},
        {"soon 0 plug", "invalid number 'soon'"},
        {"-1 0 plug", "invalid time '-1': expected seconds, at most a year"},
        {"1e12 0 plug", "invalid time '1e12': expected seconds, at most a year"},
        {"1", "missing master"},
        {"1 one plug", "invalid number 'one'"},
        {"1 1000 plug", "invalid number '1000': the maximum is 999"},
        {"1 0", "missing event"},
        {"1 0 = ID?", "invalid event '=': expected >, <, plug, unplug or hangup"},
        {"1 0 >", "missing bytes after >"},
        {"1 0 < ", "missing bytes after <"},
        {R"(1 0 > \q)", R"(unknown escape '\q')"},
        {"1 0 plug in", "unexpected argument 'in'"},
    };
    for (const auto& [line, reason] : invalid) {
        try {
            ParseRecordedEvent(line);
            ADD_FAILURE() << line;
        } catch (const UsageError& error) {
            EXPECT_EQ(error.what(), reason) << line;
        }
    }
}

class RecordingTest : public testing::Test {
protected:
    ~RecordingTest() override { std::filesystem::remove_all(folder); }

    Recording Read(const std::string& text) const {
        std::ofstream(path) << text;
        return ReadRecording(path);
    }

    /// The error message for a file with this text, without its path.
    std::string ErrorFor(const std::string& text) const {
        try {
            Read(text);
        } catch (const std::runtime_error& error) {
            const std::string reason = error.what();
            EXPECT_TRUE(reason.starts_with(path + ":")) << reason;
            return reason.substr(path.size() + 1);
        }
        return "none";
    }

    std::string folder{mkdtemp(std::string("/tmp/recording.XXXXXX").data())};
    std::string path = folder + "/cell.rec";
};

TEST_F(RecordingTest, HasTheEventsAndLinesOfEachMaster) {
    const Recording recording = Read(
        "pellix-recording 1\n"
        "# two masters\n"
        "0 0 plug\n"
        "\n"
        "0 2 plug\n"
        "0.1 2 > ID?\\n\n"
        "  # and a reason\n"
        "0.1 0 hangup\n"
        "0.2 0 unplug\n"
        "0.2 0 plug\n"
        "# the end");
    ASSERT_EQ(recording.masters.size(), 2U);
    const auto& first = recording.masters.at(0);
    ASSERT_EQ(first.size(), 4U);
    EXPECT_EQ(first[0].line, 3U);
    EXPECT_EQ(first[1].kind, RecordedKind::HangUp);
    EXPECT_EQ(first[3].line, 10U);
    const auto& second = recording.masters.at(2);
    ASSERT_EQ(second.size(), 2U);
    EXPECT_EQ(second[1].bytes, "ID?\n");
    EXPECT_EQ(second[1].line, 6U);
}

TEST_F(RecordingTest, AcceptsCarriageReturns) {
    const Recording recording = Read("pellix-recording 1\r\n\r\n0 0 plug\r\n0 0 < A\\n\r\n");
    EXPECT_EQ(recording.masters.at(0).back().bytes, "A\n");
}

TEST_F(RecordingTest, TimesOfDifferentMastersAreIndependent) {
    EXPECT_NO_THROW(Read("pellix-recording 1\n2 0 plug\n1 1 plug\n2 0 unplug\n"));
}

TEST_F(RecordingTest, RejectsInvalidFilesWithLineAndReason) {
    const std::string header = "pellix-recording 1\n";
    const std::vector<std::pair<std::string, std::string>> invalid{
        {"", "1: not a recording: the first line must be 'pellix-recording 1'"},
        {"pellix-recording 10\n0 0 plug\n",
         "1: not a recording: the first line must be 'pellix-recording 1'"},
        {header + "# nothing\n", "3: the recording has no events"},
        {header + "0 0 plug\n1 0 < A",
         "3: missing line feed at the end; the file may be truncated"},
        {header + "0 0 plug\n1 0 < \033[2J\n", "3: invalid character: write it as an escape"},
        {header + std::string("0 0 plug\n1 0 < \0\n", 17),
         "3: invalid character: write it as an escape"},
        {"0 0 plug\n", "1: not a recording: the first line must be 'pellix-recording 1'"},
        {"pellix-recording 2\n", "1: not a recording: the first line must be 'pellix-recording 1'"},
        {header + "0 0 plug\n\nnow 0 unplug\n", "4: invalid number 'now'"},
        {header + "0 0 > A\n", "2: the master is not plugged in"},
        {header + "0 0 unplug\n", "2: the master is not plugged in"},
        {header + "0 0 hangup\n", "2: the master is not plugged in"},
        {header + "0 0 plug\n1 0 plug\n", "3: the master is already plugged in"},
        {header + "0 0 plug\n1 0 < A\n1 0 plug\n", "4: the master is already plugged in"},
        {header + "0 0 plug\n1 0 unplug\n1 0 < A\n", "4: the master is not plugged in"},
        {header + "0 0 plug\n1 0 unplug\n1 0 hangup\n", "4: the master is not plugged in"},
        {header + "0 0 plug\n1 0 hangup\n1 0 > A\n", "4: the master is not plugged in"},
        {header + "2 0 plug\n1.9 0 > A\n", "3: the time is before that of line 2"},
    };
    for (const auto& [text, reason] : invalid) {
        EXPECT_EQ(ErrorFor(text), reason) << text;
    }
}

TEST_F(RecordingTest, NamesAnUnreadableFile) {
    for (const auto& [name, reason] :
         {std::pair(folder, "Is a directory"), {folder + "/none", "No such file or directory"}}) {
        try {
            ReadRecording(name);
            ADD_FAILURE() << name;
        } catch (const std::runtime_error& error) {
            EXPECT_EQ(error.what(), "cannot read " + name + ": " + reason);
        }
    }
}

TEST_F(RecordingTest, DoesNotReadAnEndlessFileToItsEnd) {
    EXPECT_THROW(ReadRecording("/dev/zero"), std::runtime_error);
}

}  // namespace
}  // namespace simulator
