#include "daemon/methods/StateMethods.h"

#include "tests/unit/daemon/GripperTest.h"

using support::FakeMaster;
using support::Messages;

namespace {

class StateMethodsTest : public GripperTest {
protected:
    static constexpr const char* kDevice = "TLM SN:100001";

    /// Makes the master report these process input bytes.
    void Report(const std::string& pdin) { ASSERT_TRUE(ReportPdin(master, kDevice, pdin)); }

    ~StateMethodsTest() override { EXPECT_EQ(master.Requests(), Messages()); }

    FakeMaster& master = cell.Plug("TLM");
};

TEST_F(StateMethodsTest, TheExcerptLeavesOutByteTwo) {
    Report("[1,2,3,4]");
    EXPECT_EQ(Answer<GetPDINExcerpt>(kDevice), "int 262657");
}

TEST_F(StateMethodsTest, TheExcerptOfAllOnesIsPositive) {
    Report("[ff,ff,ff,ff]");
    EXPECT_EQ(Answer<GetPDINExcerpt>(kDevice), "int 16777215");
}

TEST_F(StateMethodsTest, ProcessDataOfTheWrongLengthIsLoggedByTheExcerpt) {
    for (const char* const pdin : {"[1,2]", "[]", "[1,2,3,4,5]"}) {
        Report(pdin);
        EXPECT_EQ(Answer<GetPDINExcerpt>(kDevice), "int 0");
    }
    EXPECT_EQ(cell.Log().BeginningWith("PDIN length mismatch"),
              (Messages{"PDIN length mismatch: 2", "PDIN length mismatch: 0",
                        "PDIN length mismatch: 5"}));
}

TEST_F(StateMethodsTest, GettersFailSilentlyWithoutValidProcessData) {
    Report("[ff,ff,ff]");
    cell.Log().Clear();
    EXPECT_EQ(Answer<GetPos>(kDevice), "double nan");
    EXPECT_EQ(Answer<GetState>(kDevice), "int 0");
    EXPECT_EQ(Answer<GetFault>(kDevice), "boolean false");
    EXPECT_EQ(Answer<GetTempFault>(kDevice), "boolean false");
    EXPECT_EQ(Answer<GetTempWarn>(kDevice), "boolean false");
    EXPECT_EQ(Answer<GetMaintenance>(kDevice), "boolean false");
    EXPECT_EQ(cell.Log().OfThisThread(), Messages());
}

TEST_F(StateMethodsTest, ThePositionIsSigned) {
    Report("[ff,38,0,0]");
    EXPECT_EQ(Answer<GetPos>(kDevice), "double -2");
}

TEST_F(StateMethodsTest, TheStateIsTheLowNibbleOfItsByte) {
    Report("[0,0,0,fe]");
    EXPECT_EQ(Answer<GetState>(kDevice), "int 14");
}

/// @return the results of GetFault, GetTempFault, GetTempWarn and GetMaintenance
class FlagsTest : public StateMethodsTest,
                  public testing::WithParamInterface<std::pair<std::string, std::string>> {};

TEST_P(FlagsTest, EachHasItsOwnBit) {
    const auto& [pdin, flags] = GetParam();
    Report(pdin);
    const std::string answers = Answer<GetFault>(kDevice) + Answer<GetTempFault>(kDevice) +
                                Answer<GetTempWarn>(kDevice) + Answer<GetMaintenance>(kDevice);
    std::string expected;
    for (const char flag : flags) {
        expected += flag == '1' ? "boolean true" : "boolean false";
    }
    EXPECT_EQ(answers, expected);
}

INSTANTIATE_TEST_SUITE_P(, FlagsTest,
                         testing::Values(std::pair("[ff,ff,ff,f]", "0000"),
                                         std::pair("[0,0,0,10]", "1000"),
                                         std::pair("[0,0,0,20]", "0100"),
                                         std::pair("[0,0,0,40]", "0010"),
                                         std::pair("[0,0,0,80]", "0001")));

TEST_F(StateMethodsTest, UpdatePdinAlwaysRefuses) {
    cell.Log().Clear();
    EXPECT_EQ(Answer<UpdatePDIN>(kDevice), "int 3");
    EXPECT_EQ(Answer<UpdatePDIN>("nobody"), "int 3");
    EXPECT_EQ(Answer<UpdatePDIN>("---"), "int 3");
    EXPECT_EQ(cell.Log().OfThisThread(), Messages());
}

TEST_F(StateMethodsTest, TheInterfaceDistinguishesKnownFromUnknownDevices) {
    EXPECT_EQ(Answer<GetGripperInterface>(kDevice), "int 0");
    EXPECT_EQ(Answer<GetGripperInterface>("nobody"), "int -1");
    EXPECT_EQ(Answer<GetGripperInterface>("---"), "int -2");
}

}  // namespace
