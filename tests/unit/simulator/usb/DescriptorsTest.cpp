#include "simulator/usb/Descriptors.h"

#include <gtest/gtest.h>

#include <string>

namespace simulator::descriptors {
namespace {

const UsbTexts kTexts{"Zentrova", "PELLIX", "PX1000"};

std::string Get(Type type, std::uint8_t index, const UsbTexts& texts = kTexts) {
    return Find(type, index, texts, std::nullopt).value_or("none");
}

TEST(DescriptorsTest, TheDeviceIsThatOfAMaster) {
    EXPECT_EQ(Get(Type::Device, 0),
              std::string(
                  "\x12\x01\x00\x02\x02\x00\x00\x40\x83\x04\x40\x57\x00\x02\x01\x02\x03\x01", 18));
}

TEST(DescriptorsTest, AMissingTextHasNoIndex) {
    const std::string device = Get(Type::Device, 0, {std::nullopt, "PELLIX", std::nullopt});
    EXPECT_EQ(device.substr(14, 3), std::string("\x00\x02\x00", 3));
    EXPECT_EQ(Get(Type::String, 1, {std::nullopt, "PELLIX", std::nullopt}), "none");
}

TEST(DescriptorsTest, EveryPartOfTheConfigurationHasTheLengthThatItClaims) {
    const std::string configuration = Get(Type::Configuration, 0);
    ASSERT_EQ(configuration.size(), 67U);
    EXPECT_EQ(configuration[2], 67);
    std::string types;
    std::size_t position = 0;
    while (position < configuration.size()) {
        types += configuration.at(position + 1);
        ASSERT_GT(configuration[position], 0);
        position += static_cast<std::size_t>(configuration[position]);
    }
    EXPECT_EQ(position, configuration.size());
    // Configuration, interface, four of the class, endpoint, interface, two endpoints.
    EXPECT_EQ(types, "\x02\x04\x24\x24\x24\x24\x05\x04\x05\x05");
}

TEST(DescriptorsTest, TheConfigurationCanBeCut) {
    const auto cut = Find(Type::Configuration, 0, kTexts, 20);
    EXPECT_EQ(cut, Get(Type::Configuration, 0).substr(0, 20));
    EXPECT_EQ(Find(Type::Configuration, 0, kTexts, 1000), Get(Type::Configuration, 0));
    EXPECT_EQ(Find(Type::Device, 0, kTexts, 5), Get(Type::Device, 0)) << "only the configuration";
}

TEST(DescriptorsTest, TextsAreUtf16) {
    EXPECT_EQ(Get(Type::String, 0), "\x04\x03\x09\x04");
    EXPECT_EQ(Get(Type::String, 1), std::string("\x12\x03Z\0e\0n\0t\0r\0o\0v\0a\0", 18));
    EXPECT_EQ(Get(Type::String, 2), std::string("\x0e\x03P\0E\0L\0L\0I\0X\0", 14));
    EXPECT_EQ(Get(Type::String, 3).size(), 14U);
}

TEST(DescriptorsTest, ALongTextIsCutToTheLongestDescriptor) {
    const std::string text = Get(Type::String, 2, {"", std::string(300, 'x'), ""});
    EXPECT_EQ(text.size(), 254U);
    EXPECT_EQ(static_cast<unsigned char>(text[0]), 254U);
}

TEST(DescriptorsTest, OthersAreMissing) {
    EXPECT_EQ(Get(Type::Configuration, 1), "none");
    EXPECT_EQ(Get(Type::String, 4), "none");
    EXPECT_EQ(Get(static_cast<Type>(6), 0), "none") << "no high speed";
}

}  // namespace
}  // namespace simulator::descriptors
