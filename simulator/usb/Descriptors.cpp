#include "simulator/usb/Descriptors.h"

#include <array>
#include <initializer_list>
#include <string_view>

namespace simulator::descriptors {

namespace {

// Indices of the texts.
constexpr std::uint8_t kManufacturer = 1;
constexpr std::uint8_t kProduct = 2;
constexpr std::uint8_t kSerial = 3;

std::string BytesOf(std::initializer_list<unsigned> values) {
    std::string bytes;
    for (const unsigned value : values) {
        bytes += static_cast<char>(value);
    }
    return bytes;
}

std::string Device(const UsbTexts& texts) {
    const auto index = [](const auto& text, unsigned number) { return text ? number : 0U; };
    return BytesOf({
        0x12, 0x01,        // length, device
        0x00, 0x02,        // USB 2.0
        0x02, 0x00, 0x00,  // class: communication
        0x40,              // bytes of a packet of endpoint 0
        0x83, 0x04,        // vendor 0483
        0x40, 0x57,        // product 5740
        0x00, 0x02,        // release 2.00
        index(texts.manufacturer, kManufacturer), index(texts.product, kProduct),
        index(texts.serial, kSerial),
        0x01,  // configurations
    });
}

std::string Configuration() {
    return BytesOf({
        0x09, 0x02, 0x43, 0x00,                    // length, configuration, 67 bytes in all
        0x02, 0x01, 0x00,                          // interfaces, number, no text
        0xc0, 0x32,                                // self-powered, 100 mA
        0x09, 0x04, 0x00, 0x00, 0x01,              // interface 0 with an endpoint
        0x02, 0x02, 0x01, 0x00,                    // communication, ACM, AT commands
        0x05, 0x24, 0x00, 0x10, 0x01,              // CDC 1.10
        0x05, 0x24, 0x01, 0x00, 0x01,              // no call management; data interface 1
        0x04, 0x24, 0x02, 0x02,                    // line coding and line state
        0x05, 0x24, 0x06, 0x00, 0x01,              // union of the interfaces 0 and 1
        0x07, 0x05, 0x82, 0x03, 0x08, 0x00, 0x10,  // interrupt to the host, 8 bytes, 16 ms
        0x09, 0x04, 0x01, 0x00, 0x02,              // interface 1 with two endpoints
        0x0a, 0x00, 0x00, 0x00,                    // data
        0x07, 0x05, 0x01, 0x02, 0x40, 0x00, 0x00,  // bulk from the host, 64 bytes
        0x07, 0x05, 0x81, 0x02, 0x40, 0x00, 0x00,  // bulk to the host, 64 bytes
    });
}

/// UTF-16; each byte of the text is a character.
std::string Text(const std::optional<std::string>& text) {
    constexpr std::size_t kLongestText = 126;  // the length of a descriptor is a byte
    std::string bytes;
    for (const char character : text->substr(0, kLongestText)) {
        bytes += character;
        bytes += '\0';
    }
    return BytesOf({static_cast<unsigned>(2 + bytes.size()), 0x03}) + bytes;
}

std::optional<std::string> FindText(std::uint8_t index, const UsbTexts& texts) {
    if (index == 0) {
        return BytesOf({0x04, 0x03, 0x09, 0x04});  // languages: US English
    }
    const std::array all{&texts.manufacturer, &texts.product, &texts.serial};
    if (index > all.size() || !*all.at(index - 1U)) {
        return std::nullopt;
    }
    return Text(*all.at(index - 1U));
}

}  // namespace

std::optional<std::string> Find(Type type, std::uint8_t index, const UsbTexts& texts,
                                const std::optional<std::size_t>& configurationLength) {
    switch (type) {
        case Type::Device:
            return Device(texts);
        case Type::Configuration:
            return index == 0 ? std::optional(Configuration().substr(
                                    0, configurationLength.value_or(std::string::npos)))
                              : std::nullopt;
        case Type::String:
            return FindText(index, texts);
    }
    return std::nullopt;
}

}  // namespace simulator::descriptors
