#include "client/GripperName.h"

#include <gtest/gtest.h>

#include "tests/unit/client/ExpectFailure.h"

namespace tavrik {
namespace {

const std::vector<std::string> kThree{"HVA SN:1", "HVA SN:12", "MZD-S SN:2"};

TEST(GripperNameTest, TheWholeNameWinsOverParts) {
    EXPECT_EQ(MatchGripper(kThree, "HVA SN:1"), "HVA SN:1");
}

TEST(GripperNameTest, APartInEitherCaseIsEnough) {
    EXPECT_EQ(MatchGripper(kThree, "mzd"), "MZD-S SN:2");
    EXPECT_EQ(MatchGripper(kThree, ":12"), "HVA SN:12");
}

TEST(GripperNameTest, NoOtherGripperIsTakenForOneThatIsUnplugged) {
    const char* const text = "no gripper is called 'HVA SN:12'; there is 'HVA SN:123'";
    EXPECT_FAILURE(MatchGripper({"HVA SN:123"}, "HVA SN:12"), NoGripper, text);
    EXPECT_EQ(MatchGripper({"HVA SN:123"}, "23"), "HVA SN:123");
    EXPECT_EQ(MatchGripper({"HVA SN:123"}, "a sn:"), "HVA SN:123");
    EXPECT_EQ(MatchGripper({"HVA SN:1212"}, "12"), "HVA SN:1212");
}

TEST(GripperNameTest, APartIsNotExact) {
    EXPECT_EQ(MatchGripper({"HVA", "HVA SN:1"}, "HVA", true), "HVA");
    EXPECT_FAILURE(MatchGripper({"HVA SN:1"}, "HVA", true), NoGripper,
                   "no gripper is called 'HVA'; there is 'HVA SN:1'");
    EXPECT_FAILURE(MatchGripper({"HVA SN:1"}, "hva sn:1", true), NoGripper,
                   "no gripper is called 'hva sn:1'; there is 'HVA SN:1'");
}

TEST(GripperNameTest, OnlyAsciiHasTwoCases) {
    EXPECT_EQ(MatchGripper({"\xc3\x84", "\xc3\xa4"}, "\xc3\x84"), "\xc3\x84");
}

TEST(GripperNameTest, AnOnlyGripperNeedsNoName) {
    EXPECT_EQ(MatchGripper({"HVA SN:1"}, ""), "HVA SN:1");
}

TEST(GripperNameTest, TwoOfOneNameAreRefused) {
    const char* const text =
        "2 grippers are called 'HVA', and calls reach the first: unplug all but one";
    EXPECT_FAILURE(MatchGripper({"HVA", "TLM", "HVA"}, "HVA"), NoGripper, text);
    EXPECT_FAILURE(MatchGripper({"HVA", "TLM", "HVA"}, "h"), NoGripper, text);
    EXPECT_FAILURE(MatchGripper({"HVA", "HVA"}, ""), NoGripper, text);
}

TEST(GripperNameTest, AnAmbiguousPartIsRefusedWithTheNames) {
    EXPECT_FAILURE(MatchGripper(kThree, "HVA"), NoGripper,
                   "several grippers fit: 'HVA SN:1', 'HVA SN:12'");
    EXPECT_FAILURE(MatchGripper(kThree, ""), NoGripper,
                   "name one of the grippers 'HVA SN:1', 'HVA SN:12', 'MZD-S SN:2'");
}

TEST(GripperNameTest, AnUnknownNameIsRefusedWithTheNamesThatThereAre) {
    EXPECT_FAILURE(MatchGripper({"A\nB"}, "TLM\n"), NoGripper,
                   "no gripper is called 'TLM?'; there is 'A?B'");
    EXPECT_FAILURE(MatchGripper(kThree, "TLM"), NoGripper,
                   "no gripper is called 'TLM'; there are 'HVA SN:1', 'HVA SN:12', 'MZD-S SN:2'");
}

TEST(GripperNameTest, WithoutGrippersAnyNameIsRefused) {
    EXPECT_FAILURE(MatchGripper({}, "HVA"), NoGripper, "the daemon knows no gripper");
    EXPECT_FAILURE(MatchGripper({}, ""), NoGripper, "the daemon knows no gripper");
}

}  // namespace
}  // namespace tavrik
