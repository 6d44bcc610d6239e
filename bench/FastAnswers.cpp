#include "bench/FastAnswers.h"

#include <array>
#include <cstddef>

#include "simulator/LineProtocol.h"

namespace bench {

namespace {

struct KeyValue {
    std::string_view key;
    std::string_view value;
};

constexpr std::array kValues{
    KeyValue{"ID", "PELLIX"},
    KeyValue{"MODE", "4"},
    KeyValue{"DEVINFO", "[1,3,17,32,16,20,0,31249,20]"},
    KeyValue{"PDOUT", "[0,0]"},
    KeyValue{"PARAM[19][0]", "[48,56,41]"},  // "HVA"
};
constexpr std::string_view kSerialKey = "PARAM[21][0]";
constexpr std::string_view kOtherParameter = "[1]";

std::string SerialBytes(unsigned number) {
    const auto digit = [](unsigned value) { return static_cast<std::uint8_t>('0' + value); };
    return simulator::FormatByteList({'B', digit(number / 10), digit(number % 10)});
}

}  // namespace

FastAnswers::FastAnswers(unsigned masterNumber) : serial(SerialBytes(masterNumber)) {}

void FastAnswers::Append(std::string_view request, std::string& text) const {
    const std::size_t keyLength = request.find_first_of("=?(");
    if (keyLength == std::string_view::npos) {
        return;
    }
    const std::string_view key = request.substr(0, keyLength);
    text += "ACK ";
    text += key;
    text += '\n';
    const std::string_view value = request[keyLength] == '?' ? ValueOf(key) : std::string_view();
    if (!value.empty()) {
        text += key;
        text += '=';
        text += value;
        text += '\n';
    }
    text += "FIN ";
    text += key;
    text += '\n';
}

/// @return empty for a key that has no value
std::string_view FastAnswers::ValueOf(std::string_view key) const {
    if (key == kSerialKey) {
        return serial;
    }
    for (const KeyValue& entry : kValues) {
        if (entry.key == key) {
            return entry.value;
        }
    }
    return key.starts_with("PARAM[") ? kOtherParameter : std::string_view();
}

}  // namespace bench
