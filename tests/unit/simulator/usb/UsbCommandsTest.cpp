#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "simulator/CommandInterpreter.h"
#include "simulator/PtyBus.h"

namespace simulator {
namespace {

/// Master 0 has faults of USB, master 1 is not on USB.
class UsbCommandsTest : public testing::Test {
protected:
    static std::vector<Station> Stations() {
        std::vector<Station> stations;
        for (const bool onUsb : {true, false}) {
            Station& station = stations.emplace_back(std::make_unique<SimulatedMaster>(
                MasterSettings(), *FindGripperModel("HVA"), Bytes{'P'}, Bytes{'S'}, Clock::now()));
            station.usb = onUsb ? std::make_unique<UsbFaults>() : nullptr;
        }
        return stations;
    }

    std::string Execute(const std::string& line) {
        interpreter.Execute(line);
        return reply;
    }

    /// Executes a valid command. @return the faults of master 0
    UsbFaults Do(const std::string& line) {
        EXPECT_EQ(Execute(line), "ok " + line);
        UsbFaults faults;
        cell.Call(0, [&faults](const Station& station) { faults = *station.usb; });
        return faults;
    }

    bool IsRejected(const std::string& line) { return Execute(line).starts_with("usage: "); }

    Testbed testbed;
    Cell cell{Stations()};
    PtyBus bus{testbed, PtyPort::Start::Raw};
    std::string reply;
    CommandInterpreter interpreter{cell, bus, [this](const std::string& text) { reply = text; },
                                   [] { return true; }};
};

TEST_F(UsbCommandsTest, ControlRequestsAreAnsweredLateOrNot) {
    using Control = UsbFaults::Control;
    EXPECT_EQ(Do("usb-control 0 refuse").control, Control::Refuse);
    EXPECT_EQ(Do("usb-control 0 ignore").control, Control::Ignore);
    const UsbFaults faults = Do("usb-control 0 250");
    EXPECT_EQ(faults.control, Control::Answer);
    EXPECT_EQ(faults.controlDelay, std::chrono::milliseconds(250));
    EXPECT_EQ(Do("usb-control 0 refuse").controlDelay, std::chrono::milliseconds(0));
    EXPECT_TRUE(IsRejected("usb-control 0 late"));
}

TEST_F(UsbCommandsTest, TransfersFail) {
    EXPECT_FALSE(Do("usb-halt 0 in").haltedOut);
    const UsbFaults faults = Do("usb-halt 0 out");
    EXPECT_TRUE(faults.haltedIn);
    EXPECT_TRUE(faults.haltedOut);
    EXPECT_EQ(Do("usb-cut 0 3").longestTransfer, 3U);
    EXPECT_EQ(Do("usb-error 0 20").failingTransfers, 20U);
    EXPECT_TRUE(IsRejected("usb-halt 0 both"));
}

TEST_F(UsbCommandsTest, TheNextPlugIsAnother) {
    EXPECT_EQ(Do(R"(usb-text 0 product PELLIX\x00 2)").texts.product, std::string("PELLIX\0 2", 9));
    EXPECT_EQ(Do("usb-text 0 serial PX1").texts.serial, "PX1");
    EXPECT_EQ(Do("usb-text 0 manufacturer VENDOR").texts.manufacturer, "VENDOR");
    EXPECT_EQ(Do("usb-text 0 manufacturer").texts.manufacturer, std::nullopt);
    EXPECT_EQ(Do("usb-descriptor 0 9").configurationLength, 9U);
    EXPECT_EQ(Do("usb-descriptor 0 all").configurationLength, std::nullopt);
    EXPECT_TRUE(Do("usb-move 0").otherPort);
    EXPECT_TRUE(IsRejected("usb-text 0 vendor X"));
}

TEST_F(UsbCommandsTest, NeedUsb) {
    EXPECT_EQ(Execute("usb-cut 1 3"),
              "error: the master is not on USB: start pellix-sim with --usb");
}

}  // namespace
}  // namespace simulator
