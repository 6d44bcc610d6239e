#include "doctor/LinkCheck.h"

#include <gtest/gtest.h>

#include "tests/unit/doctor/FakeFolder.h"

namespace tavrik {
namespace {

/// The findings for a master on ttyACM0, of which the log has `lines`.
Findings CheckLink(const std::vector<std::string>& lines, bool isMissed = true) {
    const FakeFolder proc;
    const Host host{ProcessTable(proc.Path()),
                    std::nullopt,
                    std::nullopt,
                    std::nullopt,
                    {{"/dev/ttyACM0", "0483", "5740", "Zentrova", "PELLIX", "PX1"}}};
    return LinkCheck(host, DaemonLog(lines), isMissed).Run();
}

Finding CheckMode(const std::string& mode) {
    return CheckLink({"08:00:00 2 SerialConnection: Opening device /dev/ttyACM0",
                      "08:00:00 2 Parsing line: ID=PELLIX",
                      "08:00:00 2 Setting device mode to " + mode})
        .front();
}

TEST(LinkCheckTest, OperateIsWellAndEveryOtherModeIsNot) {
    EXPECT_EQ(CheckMode("4").mark, Mark::Ok);
    EXPECT_EQ(CheckMode("4").text, "log: ID \"PELLIX\", mode 4, operate");
    for (const char* const mode : {"-1", "0", "1", "2", "3", "5", "6", "7", "8"}) {
        EXPECT_EQ(CheckMode(mode).mark, Mark::Wrong) << mode;
        EXPECT_NE(CheckMode(mode).remedy, "") << mode;
    }
}

TEST(LinkCheckTest, ALogThatDoesNotReachBackIsNotGuessedAt) {
    const Finding finding =
        CheckLink({"08:00:00 2 SerialConnection: Opening device /dev/ttyACM0"}).front();
    EXPECT_EQ(finding.mark, Mark::Unknown);
    EXPECT_EQ(finding.text, "log: ID unknown, mode unknown");
}

TEST(LinkCheckTest, ALogWithNothingIsToldIfItMatters) {
    EXPECT_EQ(CheckLink({}).front().mark, Mark::Unknown);
    EXPECT_TRUE(CheckLink({}, false).empty());
}

TEST(LinkCheckTest, WithoutAMasterTheLogDoesNotMatter) {
    const FakeFolder proc;
    const Host host{ProcessTable(proc.Path()), std::nullopt, std::nullopt, std::nullopt, {}};
    EXPECT_TRUE(LinkCheck(host, DaemonLog({}), true).Run().empty());
}

}  // namespace
}  // namespace tavrik
