#include "daemon/methods/MotionMethods.h"

#include "tests/unit/daemon/GripperTest.h"

using support::FakeMaster;
using support::Messages;

namespace {

class MotionMethodsTest : public GripperTest {
protected:
    static constexpr const char* kDevice = "MZD-S SN:100001";

    /// Makes the master report these process output bytes.
    void Report(const std::string& pdout) {
        master.Send("@PDOUT=" + pdout + "\n");
        ASSERT_TRUE(ReportPdin(master, kDevice, "[0,0,0,1]"));
    }

    FakeMaster& master = cell.Plug("MZD-S");
};

TEST_F(MotionMethodsTest, GripEndsTheReferenceRunAndSetsDirectionAndSet) {
    Report("[4,0]");
    EXPECT_EQ(Answer<Grip>(kDevice, 3), "int 0");
    EXPECT_EQ(master.Requests(), Messages{"PDOUT=[3,3]"});
}

TEST_F(MotionMethodsTest, ReleaseKeepsTheHoldfastBit) {
    Report("[13,3]");
    EXPECT_EQ(Answer<Release>(kDevice, 1), "int 0");
    EXPECT_EQ(master.Requests(), Messages{"PDOUT=[12,1]"});
}

TEST_F(MotionMethodsTest, DisableClearsOnlyTheDriveBit) {
    Report("[ff,9]");
    EXPECT_EQ(Answer<Disable>(kDevice), "int 0");
    EXPECT_EQ(master.Requests(), Messages{"PDOUT=[fd,9]"});
}

TEST_F(MotionMethodsTest, ReferenceStartsTheRunWithTheDriveOn) {
    Report("[0,9]");
    EXPECT_EQ(Answer<Reference>(kDevice), "int 0");
    EXPECT_EQ(master.Requests(), (Messages{"DEVINFO?", "PDOUT=[6,9]"}));
}

TEST_F(MotionMethodsTest, HoldfastIsSwitchedOnAndOff) {
    Report("[13,9]");
    EXPECT_EQ(Answer<Holdfast>(kDevice, true), "int 0");
    EXPECT_EQ(Answer<Holdfast>(kDevice, false), "int 0");
    EXPECT_EQ(master.Requests(), (Messages{"DEVINFO?", "PDOUT=[13,9]", "DEVINFO?", "PDOUT=[3,9]"}));
}

}  // namespace
