#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "pellix/Pellix.h"
#include "pellix/Protocol.h"
#include "tests/support/FakeMaster.h"
#include "tests/support/LogCapture.h"
#include "tests/support/WaitFor.h"

using pellix::Pellix;
using std::chrono::milliseconds;
using support::FakeMaster;
using support::LogCapture;
using support::Messages;
using support::WaitFor;
using Lines = std::vector<std::string>;

/// Tests what the state thread of a link does when the master reports a mode.
class PellixStateTest : public testing::Test {
protected:
    void SetUp() override {
        master.SetValue("MODE", "0");
        link = std::make_unique<Pellix>(master.Path());
        ASSERT_EQ(link->Init(), pellix::kResultOk);
        ASSERT_TRUE(WaitFor([this] { return log.Contains("State thread active"); }));
        master.ClearRequests();
        log.Clear();
    }

    void TearDown() override {
        master.Unplug();
        link.reset();
    }

    void Report(int mode) const { master.Send("@MODE=" + std::to_string(mode) + "\n"); }

    /// Reports a mode that the state thread only logs and waits for the log line. By then, the
    /// state thread has finished everything before.
    void Finish() {
        const std::size_t before = log.Count("POWERFAULT");
        Report(pellix::kModePowerFault);
        EXPECT_TRUE(WaitFor([&] { return log.Count("POWERFAULT") > before; }));
    }

    /// @return messages of the state thread about its own steps
    Messages Steps() const {
        static const Messages kSteps = {"ESTABCOMM",  "STARTUP",
                                        "PREOPERATE", "Switching to OPERATE",
                                        "OPERATE",    "FALLBACK: Waiting and Restarting",
                                        "POWERFAULT"};
        Messages found;
        for (const std::string& message : log.All()) {
            if (std::find(kSteps.begin(), kSteps.end(), message) != kSteps.end()) {
                found.push_back(message);
            }
        }
        return found;
    }

    LogCapture log;
    FakeMaster master;
    std::unique_ptr<Pellix> link;
};

TEST_F(PellixStateTest, PreoperateReadsTheDeviceDataAndSwitchesToOperate) {
    master.SetAnswers("OPERATE()", {"ACK OPERATE\nFIN OPERATE\n@MODE=4\n"});
    Report(3);
    EXPECT_TRUE(master.WaitForRequest("PDOUT?"));
    EXPECT_EQ(master.Requests(),
              (Lines{"DEVINFO?", "PARAM[19][0]?", "PARAM[21][0]?", "OPERATE()", "PDOUT?"}));
    EXPECT_EQ(Steps(), (Messages{"PREOPERATE", "Switching to OPERATE", "OPERATE"}));
    EXPECT_EQ(link->GetParameter(19, 0).size(), 3U);
}

TEST_F(PellixStateTest, RepeatedModeHasNoFurtherEffect) {
    for (std::size_t i = 1; i <= 4; ++i) {
        Report(4);
        EXPECT_TRUE(master.WaitForRequest("PDOUT?"));
        EXPECT_TRUE(WaitFor([&] { return log.Count("Setting device mode to 4") == i; }));
    }
    Finish();
    EXPECT_EQ(master.Requests(), Lines{"PDOUT?"});
    EXPECT_EQ(Steps(), (Messages{"OPERATE", "POWERFAULT"}));
}

TEST_F(PellixStateTest, FailedOutputQueryIsNotRepeated) {
    master.SetAnswers("PDOUT?", {"ERR PDOUT 1\n"});
    Report(4);
    EXPECT_TRUE(master.WaitForRequest("PDOUT?"));
    Finish();
    EXPECT_EQ(master.Requests(), Lines{"PDOUT?"});
}

TEST_F(PellixStateTest, PreoperateIsRepeatedUntilTheDeviceDataAreRead) {
    master.SetAnswers("DEVINFO?", {"ERR DEVINFO 3\n", "ERR DEVINFO 3\n", "DEVINFO=[1]\n"});
    master.SetAnswers("PARAM[19][0]?", {"ERR PARAM[19][0] 3\n", "PARAM[19][0]=[41]\n"});
    master.SetAnswers("PARAM[21][0]?", {"ERR PARAM[21][0] 3\n", "PARAM[21][0]=[42]\n"});
    Report(3);
    EXPECT_TRUE(master.WaitForRequest("OPERATE()"));
    EXPECT_EQ(master.Requests(), (Lines{"DEVINFO?", "DEVINFO?", "DEVINFO?", "PARAM[19][0]?",
                                        "DEVINFO?", "PARAM[19][0]?", "PARAM[21][0]?", "DEVINFO?",
                                        "PARAM[19][0]?", "PARAM[21][0]?", "OPERATE()"}));
    EXPECT_EQ(Steps(), (Messages{"PREOPERATE", "PREOPERATE", "PREOPERATE", "PREOPERATE",
                                 "PREOPERATE", "Switching to OPERATE"}));
}

TEST_F(PellixStateTest, PreoperateIsNotRepeatedAfterTheModeChanges) {
    master.SetAnswers("DEVINFO?", {"ERR DEVINFO 3\n"});
    Report(3);
    EXPECT_TRUE(master.WaitForRequest("DEVINFO?", 3));
    Finish();
    const std::size_t count = master.Count("DEVINFO?");
    Report(2);
    EXPECT_TRUE(WaitFor([this] { return log.Contains("STARTUP"); }));
    EXPECT_EQ(master.Count("DEVINFO?"), count);
    EXPECT_EQ(master.Requests(), Lines(count, "DEVINFO?"));
}

TEST_F(PellixStateTest, FailedSwitchToOperateIsNotRepeated) {
    master.SetAnswers("OPERATE()", {"ERR OPERATE 1\n"});
    Report(3);
    EXPECT_TRUE(master.WaitForRequest("OPERATE()"));
    Finish();
    EXPECT_EQ(master.Count("OPERATE()"), 1U);
    EXPECT_EQ(master.Count("DEVINFO?"), 1U);
}

TEST_F(PellixStateTest, PreoperateAloneDoesNotConnect) {
    Report(3);
    EXPECT_TRUE(master.WaitForRequest("OPERATE()"));
    EXPECT_FALSE(link->IsConnected());
}

TEST_F(PellixStateTest, StartupConnects) {
    EXPECT_FALSE(link->IsConnected());
    Report(2);
    EXPECT_TRUE(WaitFor([this] { return link->IsConnected(); }));
    EXPECT_EQ(Steps(), Messages{"STARTUP"});
    EXPECT_TRUE(master.Requests().empty());
}

TEST_F(PellixStateTest, FallbackRestartsOnceAfterAPause) {
    const auto start = std::chrono::steady_clock::now();
    Report(5);
    EXPECT_TRUE(master.WaitForRequest("RESTART()"));
    EXPECT_GE(std::chrono::steady_clock::now() - start, milliseconds(100));
    Report(5);
    Finish();
    EXPECT_EQ(master.Requests(), Lines{"RESTART()"});
    EXPECT_EQ(Steps(), (Messages{"FALLBACK: Waiting and Restarting", "POWERFAULT"}));
}

TEST_F(PellixStateTest, FallbackRestartsAgainOnlyAfterAnotherMode) {
    Report(5);
    EXPECT_TRUE(master.WaitForRequest("RESTART()"));
    Finish();
    Report(5);
    EXPECT_TRUE(master.WaitForRequest("RESTART()", 2));
    Finish();
    EXPECT_EQ(master.Requests(), (Lines{"RESTART()", "RESTART()"}));
}

TEST_F(PellixStateTest, EstablishingCommunicationAndPowerFaultOnlyClearTheDevice) {
    for (const int mode : {1, 7}) {
        master.Send("@PARAM[19][0]=[41]\n");
        EXPECT_TRUE(WaitFor([this] { return !link->GetParameter(19, 0).empty(); }));
        log.Clear();
        Report(mode);
        const std::string step = mode == 1 ? "ESTABCOMM" : "POWERFAULT";
        EXPECT_TRUE(WaitFor([&] { return log.Contains(step); }));
        EXPECT_EQ(Steps(), Messages{step});
        EXPECT_TRUE(link->GetParameter(19, 0).empty());
    }
    EXPECT_TRUE(master.Requests().empty());
}

TEST_F(PellixStateTest, OtherModesDoNothing) {
    for (const int mode : {6, 0, -1, 8, 2147483647}) {
        Report(mode);
        EXPECT_TRUE(WaitFor([&] { return link->GetDeviceMode() == mode; }));
    }
    Finish();
    EXPECT_EQ(Steps(), Messages{"POWERFAULT"});
    EXPECT_TRUE(master.Requests().empty());
}

TEST_F(PellixStateTest, ModeTakesEffectAgainAfterAnUnknownMode) {
    Report(4);
    EXPECT_TRUE(master.WaitForRequest("PDOUT?"));
    const auto again = [this] { return master.Count("PDOUT?") > 1; };
    Report(9);
    EXPECT_FALSE(WaitFor(again, milliseconds(15)));
    EXPECT_TRUE(WaitFor([&] {  // a mode shorter than one pass may be missed
        Report(4);
        const bool isSeen = WaitFor(again, milliseconds(15));
        Report(9);
        return isSeen || WaitFor(again, milliseconds(15));
    }));
}
