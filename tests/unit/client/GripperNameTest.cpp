#include "client/GripperName.h"

#include <gtest/gtest.h>

#include "tests/unit/client/ExpectFailure.h"

namespace tavrik {
namespace {

const std::vector<std::string> kThree{"HVA SN:1", "HVA SN:12", "MZD-S SN:2"};

TEST(GripperNameTest, TheWholeNameWinsOverParts) {
    EXPECT_EQ(MatchGripper(kThree, "HVA SN:1"), "HVA SN:1");
}

TEST(GripperNameTest, AUniquePartMatchesInAnyCase) {
    EXPECT_EQ(MatchGripper(kThree, "mzd-"), "MZD-S SN:2");
    EXPECT_EQ(MatchGripper(kThree, "n:12"), "HVA SN:12");
}

TEST(GripperNameTest, TheModelAndTheSerialNumberMayBeShort) {
    EXPECT_EQ(MatchGripper(kThree, "mzd"), "MZD-S SN:2");
    EXPECT_EQ(MatchGripper({"T2 SN:1", "T2-L SN:4"}, "t2-l"), "T2-L SN:4");
    EXPECT_EQ(MatchGripper({"HVA SN:A7", "HVA SN:B7"}, "b7"), "HVA SN:B7");
    EXPECT_EQ(MatchGripper({"H"}, "h"), "H");
}

TEST(GripperNameTest, AShorterPartIsRejectedWithTheAvailableNames) {
    for (const std::string name : {"h", "va", "SN:", ":12"}) {
        const std::string text =
            "'" + name +
            "' is too short to name a gripper: type its model or at least 4 characters; available: "
            "'HVA SN:1', 'HVA SN:12', 'MZD-S SN:2'";
        EXPECT_FAILURE(MatchGripper(kThree, name), NoGripper, text.c_str());
    }
}

TEST(GripperNameTest, AShortNumberIsRejectedEvenIfItIsTheSerialNumber) {
    EXPECT_FAILURE(
        MatchGripper({"HVA SN:1"}, "1"), NoGripper,
        "'1' is too short to name a gripper: type its model or at least 4 characters; available: "
        "'HVA SN:1'");
    EXPECT_FAILURE(
        MatchGripper({"HVA SN:100001"}, "001"), NoGripper,
        "'001' is too short to name a gripper: type its model or at least 4 characters; available: "
        "'HVA SN:100001'");
    EXPECT_FAILURE(MatchGripper({"HVA SN:100001"}, "2"), NoGripper,
                   "no gripper matches '2'; available: 'HVA SN:100001'");
    EXPECT_EQ(MatchGripper({"HVA SN:100001"}, "0001"), "HVA SN:100001");
    EXPECT_EQ(MatchGripper({"12"}, "12"), "12");
}

TEST(GripperNameTest, AnUnpluggedGripperMatchesNoOther) {
    const char* const text = "no gripper matches 'HVA SN:12'; available: 'HVA SN:123'";
    EXPECT_FAILURE(MatchGripper({"HVA SN:123"}, "HVA SN:12"), NoGripper, text);
    EXPECT_EQ(MatchGripper({"HVA SN:12345"}, "2345"), "HVA SN:12345");
    EXPECT_EQ(MatchGripper({"HVA SN:123"}, "a sn:"), "HVA SN:123");
    EXPECT_EQ(MatchGripper({"HVA SN:12341234"}, "1234"), "HVA SN:12341234");
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
    EXPECT_FAILURE(MatchGripper({"HVA", "TLM", "HVA"}, "hva"), NoGripper, text);
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
