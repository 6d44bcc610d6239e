#include "daemon/methods/LEDMethods.h"

#include "tests/unit/daemon/GripperTest.h"
#include "tests/unit/daemon/MethodTable.h"

using support::FakeMaster;
using support::Messages;

namespace {

constexpr const char* kDevice = "MZD-S SN:100001";

using LEDMethodsTest = GripperTest;

/// Another gripper answers the request of the model check: its serial number arrives first.
void ExchangeGripper(FakeMaster& master) {
    master.SetAnswers("DEVINFO?", {"@PARAM[21][0]=[39]\nDEVINFO=[1,2,3,32,16,5,6," +
                                   std::to_string(pellix::kCorvaneVendorId) + ",40]\n"});
}

TEST_F(LEDMethodsTest, AGripperReplacedDuringTheCallIsRefusedSilently) {
    for (const MethodFacts& method : AllMethods()) {
        if (method.className.find("LED") == std::string::npos) {
            continue;
        }
        SCOPED_TRACE(method.className);
        FakeMaster& master = cell.Plug("MZD-S");
        ExchangeGripper(master);
        EXPECT_EQ(SampleAnswer(method, kDevice), method.fallback);
        EXPECT_EQ(master.Requests(), Messages{"DEVINFO?"});
        cell.Unplug(master);
    }
    EXPECT_EQ(cell.Log().Text().find("Failed to get PELLIX handle"), std::string::npos);
}

TEST_F(LEDMethodsTest, OtherCallsDoNotCheckTheDeviceStringAgain) {
    FakeMaster& master = cell.Plug("MZD-S");
    ExchangeGripper(master);
    EXPECT_EQ(SampleAnswer(FactsOf("Holdfast"), kDevice), "int 0");
}

TEST_F(LEDMethodsTest, ThePresetIsThreeBitsWide) {
    FakeMaster& master = cell.Plug("MZD-S");
    EXPECT_EQ(Answer<SetLEDPreset>(kDevice, 7), "int 0");
    EXPECT_EQ(Answer<SetLEDPreset>(kDevice, 9), "int 0");
    EXPECT_EQ(master.Requests(),
              (Messages{"DEVINFO?", "PDOUT=[ea,5]", "DEVINFO?", "PDOUT=[2a,5]"}));
}

TEST_F(LEDMethodsTest, LedsOfAnHvaAreRefused) {
    FakeMaster& master = cell.Plug("HVA");
    EXPECT_EQ(Answer<SetLEDColor>("HVA SN:100001", 1, 2), "int 3");
    EXPECT_EQ(Answer<GetLEDColor>("HVA SN:100001", 1), "int 0");
    EXPECT_EQ(master.Requests(), (Messages{"DEVINFO?", "DEVINFO?"}));
}

TEST_F(LEDMethodsTest, LedValuesOfTheWrongLengthAreZero) {
    FakeMaster& master = cell.Plug("MZD-S");
    for (const char* const key : {"PARAM[130][1]", "PARAM[130][2]", "PARAM[130][3]"}) {
        SetValue(master, key, "[1,2]");
    }
    EXPECT_EQ(Answer<GetLEDAnimation>(kDevice, 2), "int 0");
    EXPECT_EQ(Answer<GetLEDColor>(kDevice, 2), "int 0");
    EXPECT_EQ(Answer<GetLEDSpeed>(kDevice, 2), "int 0");
}

}  // namespace
