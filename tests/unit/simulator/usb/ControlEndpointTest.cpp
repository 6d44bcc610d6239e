#include "simulator/usb/ControlEndpoint.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

namespace simulator {
namespace {

UsbFaults WithTexts() {
    UsbFaults faults;
    faults.texts = {"Zentrova", "PELLIX", "PX1000"};
    return faults;
}

class ControlEndpointTest : public testing::Test {
protected:
    std::optional<std::string> Ask(const ControlEndpoint::Setup& setup,
                                   const std::string& data = {}) {
        return endpoint.Answer(setup, data);
    }

    UsbFaults faults = WithTexts();
    ControlEndpoint endpoint{faults};
};

TEST_F(ControlEndpointTest, SendsAtMostWhatTheHostWants) {
    const auto start = Ask({0x80, 6, 0, 2, 0, 0, 9, 0});
    ASSERT_TRUE(start);
    EXPECT_EQ(*start, std::string("\x09\x02\x43\x00\x02\x01\x00\xc0\x32", 9));
    EXPECT_EQ(Ask({0x80, 6, 0, 2, 0, 0, 67, 0}).value_or("").size(), 67U);
    EXPECT_EQ(Ask({0x80, 6, 3, 3, 9, 4, 255, 0}).value_or("").size(), 14U);
}

TEST_F(ControlEndpointTest, KeepsTheConfiguration) {
    EXPECT_EQ(Ask({0x80, 8, 0, 0, 0, 0, 1, 0}), std::string(1, '\0'));
    EXPECT_EQ(Ask({0, 9, 1, 0, 0, 0, 0, 0}), "");
    EXPECT_EQ(Ask({0x80, 8, 0, 0, 0, 0, 1, 0}), "\x01");
    EXPECT_EQ(Ask({0, 9, 2, 0, 0, 0, 0, 0}), std::nullopt);
}

TEST_F(ControlEndpointTest, KeepsTheLineCoding) {
    EXPECT_EQ(Ask({0xa1, 0x21, 0, 0, 0, 0, 7, 0}), std::string("\x00\xc2\x01\x00\x00\x00\x08", 7));
    const std::string coding("\x80\x25\x00\x00\x00\x00\x08", 7);
    EXPECT_EQ(Ask({0x21, 0x20, 0, 0, 0, 0, 7, 0}, coding), "");
    EXPECT_EQ(Ask({0xa1, 0x21, 0, 0, 0, 0, 7, 0}), coding);
    EXPECT_EQ(Ask({0x21, 0x20, 0, 0, 0, 0, 6, 0}, "cut it"), std::nullopt);
    EXPECT_EQ(Ask({0xa1, 0x21, 0, 0, 0, 0, 7, 0}), coding);
}

TEST_F(ControlEndpointTest, KnowsWhetherTheTtyIsOpen) {
    EXPECT_FALSE(endpoint.IsOpened());
    EXPECT_EQ(Ask({0x21, 0x22, 3, 0, 0, 0, 0, 0}), "");
    EXPECT_TRUE(endpoint.IsOpened());
    EXPECT_EQ(Ask({0x21, 0x22, 2, 0, 0, 0, 0, 0}), "");
    EXPECT_FALSE(endpoint.IsOpened());
    Ask({0x21, 0x22, 3, 0, 0, 0, 0, 0});
    Ask({0, 9, 1, 0, 0, 0, 0, 0});
    EXPECT_FALSE(endpoint.IsOpened()) << "configured again after a reset";
}

TEST_F(ControlEndpointTest, ClearsTheHaltOfOneEndpoint) {
    faults.haltedIn = true;
    faults.haltedOut = true;
    EXPECT_EQ(Ask({0x82, 0, 0, 0, 0x81, 0, 2, 0}), std::string("\x01\x00", 2));
    EXPECT_EQ(Ask({0x82, 0, 0, 0, 0x82, 0, 2, 0}), std::string("\x00\x00", 2));
    EXPECT_EQ(Ask({2, 1, 0, 0, 0x81, 0, 0, 0}), "");
    EXPECT_FALSE(faults.haltedIn);
    EXPECT_TRUE(faults.haltedOut);
    EXPECT_EQ(Ask({2, 1, 0, 0, 1, 0, 0, 0}), "");
    EXPECT_FALSE(faults.haltedOut);
}

TEST_F(ControlEndpointTest, ClearsHaltsWhenConfigured) {
    const auto halt = [this] { faults.haltedIn = faults.haltedOut = true; };
    halt();
    EXPECT_EQ(Ask({1, 11, 0, 0, 0, 0, 0, 0}), "") << "the interface without bulk endpoints";
    EXPECT_EQ(Ask({1, 11, 1, 0, 1, 0, 0, 0}), std::nullopt);
    EXPECT_EQ(Ask({0, 9, 2, 0, 0, 0, 0, 0}), std::nullopt);
    EXPECT_TRUE(faults.haltedIn);
    EXPECT_TRUE(faults.haltedOut);
    EXPECT_EQ(Ask({1, 11, 0, 0, 1, 0, 0, 0}), "");
    EXPECT_FALSE(faults.haltedIn);
    EXPECT_FALSE(faults.haltedOut);
    halt();
    EXPECT_EQ(Ask({0, 9, 1, 0, 0, 0, 0, 0}), "");
    EXPECT_FALSE(faults.haltedIn);
    EXPECT_FALSE(faults.haltedOut);
}

TEST_F(ControlEndpointTest, RefusesWhatItDoesNotKnow) {
    EXPECT_EQ(Ask({0x80, 6, 0, 6, 0, 0, 10, 0}), std::nullopt) << "high speed";
    EXPECT_EQ(Ask({0, 3, 1, 0, 0, 0, 0, 0}), std::nullopt) << "wake-up";
    EXPECT_EQ(Ask({0x21, 0x24, 0, 0, 0, 0, 0, 0}), std::nullopt);
    EXPECT_EQ(Ask({0xc0, 6, 0, 0, 0, 0, 8, 0}), std::nullopt) << "of a vendor";
}

TEST_F(ControlEndpointTest, TextsChangeWithTheNextPlug) {
    faults.texts.product = "OTHER";
    EXPECT_EQ(Ask({0x80, 6, 2, 3, 9, 4, 255, 0}).value_or("").size(), 14U);
    EXPECT_EQ(ControlEndpoint(faults).Answer({0x80, 6, 2, 3, 9, 4, 255, 0}, "").value_or("").size(),
              12U);
}

}  // namespace
}  // namespace simulator
