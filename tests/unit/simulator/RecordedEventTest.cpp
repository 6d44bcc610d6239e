#include "simulator/RecordedEvent.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "simulator/UsageError.h"

namespace simulator {
namespace {

using std::chrono::microseconds;

TEST(RecordedEventTest, IsOneLineOfPlainText) {
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

TEST(RecordedEventTest, BytesOfEveryValueComeBack) {
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

TEST(RecordedEventTest, WhatAnEditorLeavesIsNoHarm) {
    const RecordedEvent event = ParseRecordedEvent("1.5\t0   > A  B \t\r");
    EXPECT_EQ(event.time, microseconds(1500000));
    EXPECT_EQ(event.bytes, "A  B");
    EXPECT_EQ(ParseRecordedEvent(" 2 1 unplug ").kind, RecordedKind::Unplug);
}

TEST(RecordedEventTest, WhatIsNotUnderstoodIsRefusedWithTheReason) {
    const std::vector<std::pair<std::string, std::string>> wrongs{
        {"", "the time is missing"},
        {"soon 0 plug", "not a number: 'soon'"},
        {"-1 0 plug", "no time within a year: '-1'"},
        {"1e12 0 plug", "no time within a year: '1e12'"},
        {"1", "the master is missing"},
        {"1 one plug", "not a number: 'one'"},
        {"1 1000 plug", "larger than 999: 1000"},
        {"1 0", "the event is missing"},
        {"1 0 = ID?", "none of > < plug unplug hangup: '='"},
        {"1 0 >", "there are no bytes behind >"},
        {"1 0 < ", "there are no bytes behind <"},
        {R"(1 0 > \q)", "unknown escape"},
        {"1 0 plug in", "something is left over"},
    };
    for (const auto& [line, reason] : wrongs) {
        try {
            ParseRecordedEvent(line);
            ADD_FAILURE() << line;
        } catch (const UsageError& error) {
            EXPECT_EQ(error.what(), reason) << line;
        }
    }
}

}  // namespace
}  // namespace simulator
