#include "doctor/DaemonLog.h"

#include <gtest/gtest.h>

#include "doctor/Host.h"
#include "tests/unit/doctor/FakeFolder.h"

namespace tavrik {
namespace {

using Lines = std::vector<std::string>;

const Lines kTwoMasters{"08:00:00 1 SerialConnection: Opening device /dev/ttyACM0",
                        "08:00:00 2 Parser thread active",
                        "08:00:00 2 Parsing line: ID=\"PELLIX\"",
                        "08:00:00 2 Setting device mode to 3",
                        "08:00:00 1 SerialConnection: Opening device /dev/ttyACM1",
                        "08:00:00 3 Parser thread active",
                        "08:00:00 3 Parsing line: ID=PELLOX",
                        "08:00:00 2 Setting device mode to 4",
                        "08:00:00 3 Setting device mode to 7"};

Lines Longer(Lines lines, const Lines& more) {
    lines.insert(lines.end(), more.begin(), more.end());
    return lines;
}

TEST(DaemonLogTest, EachMasterHasItsIdAndLastMode) {
    const DaemonLog log(kTwoMasters);
    EXPECT_EQ(log.Find("/dev/ttyACM0")->id, "PELLIX");
    EXPECT_EQ(log.Find("/dev/ttyACM0")->mode, 4);
    EXPECT_EQ(log.Find("/dev/ttyACM1")->id, "PELLOX");
    EXPECT_EQ(log.Find("/dev/ttyACM1")->mode, 7);
    EXPECT_EQ(log.Find("/dev/ttyACM2"), nullptr);
}

TEST(DaemonLogTest, ARemovedMasterIsForgotten) {
    const DaemonLog log(Longer(kTwoMasters, {"08:00:01 1 PELLIX removed: /dev/ttyACM0"}));
    EXPECT_EQ(log.Find("/dev/ttyACM0"), nullptr);
    EXPECT_NE(log.Find("/dev/ttyACM1"), nullptr);
}

TEST(DaemonLogTest, ARepluggedMasterStartsAnew) {
    const DaemonLog log(
        Longer(kTwoMasters, {"08:00:01 1 SerialConnection: Opening device /dev/ttyACM0",
                             "08:00:01 4 Parser thread active"}));
    EXPECT_FALSE(log.Find("/dev/ttyACM0")->id);
    EXPECT_FALSE(log.Find("/dev/ttyACM0")->mode);
}

TEST(DaemonLogTest, AReopenedTtyKeepsIdAndMode) {
    const DaemonLog log(
        Longer(kTwoMasters, {"08:00:01 2 SerialConnection: Opening device /dev/ttyACM0",
                             "08:00:01 2 Setting device mode to 5"}));
    EXPECT_EQ(log.Find("/dev/ttyACM0")->id, "PELLIX");
    EXPECT_EQ(log.Find("/dev/ttyACM0")->mode, 5);
}

TEST(DaemonLogTest, AFailedLinkHasItsLogLine) {
    const DaemonLog log(
        Longer(kTwoMasters, {"08:00:01 1 SerialConnection: Opening device /dev/ttyACM2",
                             "08:00:01 4 Parser thread active", "08:00:06 1 Failed to update ID: 5",
                             "08:00:06 1 Failed to initialize new device: 5"}));
    EXPECT_EQ(log.Find("/dev/ttyACM2")->failure, "Failed to initialize new device: 5");
    EXPECT_EQ(log.Find("/dev/ttyACM1")->failure, "");
}

TEST(DaemonLogTest, OtherLinesAreIgnored) {
    const DaemonLog log({"", "-- Boot --", "08:00:00", "08:00:00 2",
                         "08:00:00 2 Parser thread active", "08:00:00 2 Setting device mode to 4",
                         "08:00:00 1 SerialConnection: Opening device /dev/ttyACM0",
                         "08:00:00 1 Setting device mode to x"});
    EXPECT_EQ(log.Find(""), nullptr);
    EXPECT_FALSE(log.Find("/dev/ttyACM0")->mode);
}

/// The findings for a master on ttyACM0, of which the log has `lines`.
Findings CheckLink(const std::vector<std::string>& lines, bool isMissed = true) {
    const FakeFolder proc;
    const Host host{ProcessTable(proc.Path()),
                    std::nullopt,
                    std::nullopt,
                    std::nullopt,
                    {{"/dev/ttyACM0", "0483", "5740", "Zentrova", "PELLIX", "PX1"}}};
    return CheckLinks(host, DaemonLog(lines), isMissed);
}

Finding CheckMode(const std::string& mode) {
    return CheckLink({"08:00:00 2 SerialConnection: Opening device /dev/ttyACM0",
                      "08:00:00 2 Parsing line: ID=PELLIX",
                      "08:00:00 2 Setting device mode to " + mode})
        .front();
}

TEST(LinkCheckTest, OnlyOperateIsOk) {
    EXPECT_EQ(CheckMode("4").mark, Mark::Ok);
    EXPECT_EQ(CheckMode("4").text, "log: ID \"PELLIX\", mode 4, operate");
    for (const char* const mode : {"-1", "0", "1", "2", "3", "5", "6", "7", "8"}) {
        EXPECT_EQ(CheckMode(mode).mark, Mark::Wrong) << mode;
        EXPECT_NE(CheckMode(mode).remedy, "") << mode;
    }
}

TEST(LinkCheckTest, AShortLogIsReportedAsUnknown) {
    const Finding finding =
        CheckLink({"08:00:00 2 SerialConnection: Opening device /dev/ttyACM0"}).front();
    EXPECT_EQ(finding.mark, Mark::Unknown);
    EXPECT_EQ(finding.text, "log: ID unknown, mode unknown");
}

TEST(LinkCheckTest, AnEmptyLogIsReportedIfItMatters) {
    EXPECT_EQ(CheckLink({}).front().mark, Mark::Unknown);
    EXPECT_TRUE(CheckLink({}, false).empty());
}

TEST(LinkCheckTest, WithoutAMasterTheLogDoesNotMatter) {
    const FakeFolder proc;
    const Host host{ProcessTable(proc.Path()), std::nullopt, std::nullopt, std::nullopt, {}};
    EXPECT_TRUE(CheckLinks(host, DaemonLog({}), true).empty());
}

}  // namespace
}  // namespace tavrik
