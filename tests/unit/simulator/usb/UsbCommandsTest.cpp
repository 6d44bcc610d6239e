#include "simulator/usb/UsbCommands.h"

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>

namespace simulator {
namespace {

class UsbCommandsTest : public testing::Test {
protected:
    UsbCommandsTest()
        : station(std::make_unique<SimulatedMaster>(MasterSettings(), *FindGripperModel("HVA"),
                                                    Bytes{'P'}, Bytes{'S'}, Clock::now())) {
        station.usb = std::make_unique<UsbFaults>();
    }

    UsbFaults& Do(usb_commands::Work (*parse)(CommandWords&), const std::string& text) {
        CommandWords words(text);
        const auto work = parse(words);
        words.End();
        work(station);
        return *station.usb;
    }

    Station station;
};

TEST_F(UsbCommandsTest, ControlRequestsAreAnsweredLateOrNot) {
    using Control = UsbFaults::Control;
    EXPECT_EQ(Do(usb_commands::Control, "refuse").control, Control::Refuse);
    EXPECT_EQ(Do(usb_commands::Control, "ignore").control, Control::Ignore);
    const UsbFaults& faults = Do(usb_commands::Control, "250");
    EXPECT_EQ(faults.control, Control::Answer);
    EXPECT_EQ(faults.controlDelay, std::chrono::milliseconds(250));
    EXPECT_THROW(Do(usb_commands::Control, "late"), UsageError);
}

TEST_F(UsbCommandsTest, TransfersFail) {
    EXPECT_TRUE(Do(usb_commands::Halt, "in").haltedIn);
    EXPECT_FALSE(station.usb->haltedOut);
    EXPECT_TRUE(Do(usb_commands::Halt, "out").haltedOut);
    EXPECT_EQ(Do(usb_commands::Cut, "3").longestTransfer, 3U);
    EXPECT_EQ(Do(usb_commands::Error, "20").failingTransfers, 20U);
    EXPECT_THROW(Do(usb_commands::Halt, "both"), UsageError);
}

TEST_F(UsbCommandsTest, TheNextPlugIsAnother) {
    EXPECT_EQ(Do(usb_commands::Text, R"(product PELLIX\x00 2)").texts.product,
              std::string("PELLIX\0 2", 9));
    EXPECT_EQ(Do(usb_commands::Text, "serial PX1").texts.serial, "PX1");
    EXPECT_EQ(Do(usb_commands::Text, "manufacturer").texts.manufacturer, std::nullopt);
    EXPECT_EQ(Do(usb_commands::Descriptor, "9").configurationLength, 9U);
    EXPECT_EQ(Do(usb_commands::Descriptor, "all").configurationLength, std::nullopt);
    EXPECT_TRUE(Do(usb_commands::Move, "").otherPort);
    EXPECT_THROW(Do(usb_commands::Text, "vendor X"), UsageError);
}

TEST_F(UsbCommandsTest, NeedUsb) {
    station.usb.reset();
    EXPECT_THROW(Do(usb_commands::Cut, "3"), std::runtime_error);
}

}  // namespace
}  // namespace simulator
