#include "client/Daemon.h"

#include <gtest/gtest.h>

#include "tests/unit/client/ExpectFailure.h"

namespace tavrik {
namespace {

const std::vector<std::string> kThree{"HVA SN:1", "HVA SN:12", "MZD-S SN:2"};

TEST(GripperNameTest, TheWholeNameWinsOverParts) {
    EXPECT_EQ(MatchGripper(kThree, "HVA SN:1"), "HVA SN:1");
}

TEST(GripperNameTest, AUniquePartMatchesInAnyCase) {
    EXPECT_EQ(MatchGripper(kThree, "mzd"), "MZD-S SN:2");
    EXPECT_EQ(MatchGripper(kThree, ":12"), "HVA SN:12");
}

TEST(GripperNameTest, AnUnpluggedGripperMatchesNoOther) {
    const char* const text = "no gripper matches 'HVA SN:12'; available: 'HVA SN:123'";
    EXPECT_FAILURE(MatchGripper({"HVA SN:123"}, "HVA SN:12"), NoGripper, text);
    EXPECT_EQ(MatchGripper({"HVA SN:123"}, "23"), "HVA SN:123");
    EXPECT_EQ(MatchGripper({"HVA SN:123"}, "a sn:"), "HVA SN:123");
    EXPECT_EQ(MatchGripper({"HVA SN:1212"}, "12"), "HVA SN:1212");
}

TEST(GripperNameTest, APartIsRejectedIfExact) {
    EXPECT_EQ(MatchGripper({"HVA", "HVA SN:1"}, "HVA", true), "HVA");
    EXPECT_FAILURE(MatchGripper({"HVA SN:1"}, "HVA", true), NoGripper,
                   "no gripper matches 'HVA'; available: 'HVA SN:1'");
    EXPECT_FAILURE(MatchGripper({"HVA SN:1"}, "hva sn:1", true), NoGripper,
                   "no gripper matches 'hva sn:1'; available: 'HVA SN:1'");
}

TEST(GripperNameTest, CaseIsIgnoredForAsciiOnly) {
    EXPECT_EQ(MatchGripper({"\xc3\x84", "\xc3\xa4"}, "\xc3\x84"), "\xc3\x84");
}

TEST(GripperNameTest, ASingleGripperNeedsNoName) {
    EXPECT_EQ(MatchGripper({"HVA SN:1"}, ""), "HVA SN:1");
}

TEST(GripperNameTest, DuplicateNamesAreRejected) {
    const char* const text =
        "2 grippers are named 'HVA' and calls reach only the first: unplug all but one";
    EXPECT_FAILURE(MatchGripper({"HVA", "TLM", "HVA"}, "HVA"), NoGripper, text);
    EXPECT_FAILURE(MatchGripper({"HVA", "TLM", "HVA"}, "h"), NoGripper, text);
    EXPECT_FAILURE(MatchGripper({"HVA", "HVA"}, ""), NoGripper, text);
}

TEST(GripperNameTest, AnAmbiguousPartIsRejectedWithTheCandidates) {
    EXPECT_FAILURE(MatchGripper(kThree, "HVA"), NoGripper,
                   "several grippers match: 'HVA SN:1', 'HVA SN:12'");
    EXPECT_FAILURE(MatchGripper(kThree, ""), NoGripper,
                   "several grippers found, name one of: 'HVA SN:1', 'HVA SN:12', 'MZD-S SN:2'");
}

TEST(GripperNameTest, AnUnknownNameIsRejectedWithTheAvailableNames) {
    EXPECT_FAILURE(MatchGripper({"A\nB"}, "TLM\n"), NoGripper,
                   "no gripper matches 'TLM?'; available: 'A?B'");
    EXPECT_FAILURE(MatchGripper(kThree, "TLM"), NoGripper,
                   "no gripper matches 'TLM'; available: 'HVA SN:1', 'HVA SN:12', 'MZD-S SN:2'");
}

TEST(GripperNameTest, WithoutGrippersAnyNameIsRejected) {
    EXPECT_FAILURE(MatchGripper({}, "HVA"), NoGripper, "no grippers found");
    EXPECT_FAILURE(MatchGripper({}, ""), NoGripper, "no grippers found");
}

}  // namespace
}  // namespace tavrik
