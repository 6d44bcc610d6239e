#include "simulator/usb/Descriptors.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <fstream>
#include <map>
#include <sstream>
#include <string>

namespace simulator::descriptors {
namespace {

bool StartsWithOneOf(const std::string& name, std::initializer_list<const char*> prefixes) {
    return std::ranges::any_of(prefixes, [&name](const std::string& prefix) {
        return name.size() > prefix.size() && name.starts_with(prefix) &&
               std::isupper(static_cast<unsigned char>(name[prefix.size()])) != 0;
    });
}

/// The bytes of a field in the output of "lsusb -v"; none if the line is not a field.
std::string BytesOfField(const std::string& name, std::string value) {
    if (name == "MaxPower") {
        return {static_cast<char>(std::stoi(value) / 2)};  // in units of 2 mA
    }
    if (StartsWithOneOf(name, {"bcd"})) {
        std::erase(value, '.');
        value.insert(0, "0x");
    }
    if (StartsWithOneOf(name, {"w", "id", "bcd"})) {
        const int number = std::stoi(value, nullptr, 0);
        return {static_cast<char>(number & 0xff), static_cast<char>(number >> 8)};
    }
    if (StartsWithOneOf(name, {"b", "bm", "i"})) {
        return {static_cast<char>(std::stoi(value, nullptr, 0))};
    }
    return {};
}

/// The descriptors that "lsusb -v" prints, as bytes. It omits the start of those of the class.
std::string BytesOfLsusb(std::istream& output) {
    const std::map<std::string, std::string> starts{{"Header:", {"\x05\x24\x00", 3}},
                                                    {"Call", {"\x05\x24\x01"}},
                                                    {"ACM:", {"\x04\x24\x02"}},
                                                    {"Union:", {"\x05\x24\x06"}}};
    std::string bytes;
    for (std::string line; std::getline(output, line);) {
        std::istringstream words(line);
        std::string name;
        std::string value;
        words >> name >> value;
        bytes += name == "CDC" ? starts.at(value) : BytesOfField(name, value);
    }
    return bytes;
}

const UsbTexts kTexts{"Zentrova", "PELLIX", "PX1000"};

std::string Get(Type type, std::uint8_t index, const UsbTexts& texts = kTexts) {
    return Find(type, index, texts, std::nullopt).value_or("none");
}

TEST(DescriptorsTest, TheDeviceIsThatOfAMaster) {
    EXPECT_EQ(Get(Type::Device, 0),
              std::string(
                  "\x12\x01\x00\x02\x02\x00\x00\x40\x83\x04\x40\x57\x00\x02\x01\x02\x03\x01", 18));
}

TEST(DescriptorsTest, AreThoseThatLsusbPrints) {
    std::ifstream output(LSUSB_OUTPUT);
    EXPECT_EQ(Get(Type::Device, 0) + Get(Type::Configuration, 0), BytesOfLsusb(output));
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
