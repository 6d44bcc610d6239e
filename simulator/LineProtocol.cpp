#include "simulator/LineProtocol.h"

#include <array>
#include <charconv>
#include <system_error>

namespace simulator {

namespace {

constexpr std::string_view kDecimalDigits = "0123456789";
constexpr std::string_view kHexadecimalDigits = "0123456789abcdef";

std::optional<unsigned> ParseDigits(std::string_view text, std::string_view digits) {
    const bool leadingZero = text.size() > 1 && text.front() == '0';
    if (text.empty() || leadingZero || text.find_first_not_of(digits) != std::string_view::npos) {
        return std::nullopt;
    }
    unsigned number = 0;
    const auto result = std::from_chars(text.data(), text.data() + text.size(), number,
                                        static_cast<int>(digits.size()));
    if (result.ec != std::errc()) {
        return std::nullopt;
    }
    return number;
}

/// Takes "[" text "]" off the front of `rest` and hands out the text.
std::optional<std::string_view> TakeBracketGroup(std::string_view& rest) {
    const auto end = rest.find(']');
    if (!rest.starts_with('[') || end == std::string_view::npos) {
        return std::nullopt;
    }
    const std::string_view group = rest.substr(1, end - 1);
    rest.remove_prefix(end + 1);
    return group;
}

}  // namespace

std::optional<Request> ParseRequest(std::string_view line) {
    if (const auto equals = line.find('='); equals != std::string_view::npos) {
        return Request{RequestForm::Assignment, std::string(line.substr(0, equals)),
                       std::string(line.substr(equals + 1))};
    }
    if (line.ends_with('?')) {
        return Request{RequestForm::Query, std::string(line.substr(0, line.size() - 1)), {}};
    }
    const auto parenthesis = line.find('(');
    if (parenthesis != std::string_view::npos && line.ends_with(')')) {
        const auto length = line.size() - parenthesis - 2;
        return Request{RequestForm::Call, std::string(line.substr(0, parenthesis)),
                       std::string(line.substr(parenthesis + 1, length))};
    }
    return std::nullopt;
}

std::optional<unsigned> ParseNumber(std::string_view text) {
    return ParseDigits(text, kDecimalDigits);
}

std::optional<ParameterKey> ParseParameterKey(std::string_view key) {
    constexpr std::string_view kWord = "PARAM";
    if (!key.starts_with(kWord)) {
        return std::nullopt;
    }
    key.remove_prefix(kWord.size());
    const auto indexText = TakeBracketGroup(key);
    const auto subindexText = TakeBracketGroup(key);
    if (!indexText || !subindexText || !key.empty()) {
        return std::nullopt;
    }
    const auto index = ParseNumber(*indexText);
    const auto subindex = ParseNumber(*subindexText);
    if (!index || !subindex) {
        return std::nullopt;
    }
    return ParameterKey{*index, *subindex};
}

std::optional<Bytes> ParseByteList(std::string_view text) {
    const auto list = TakeBracketGroup(text);
    if (!list || !text.empty()) {
        return std::nullopt;
    }
    Bytes bytes;
    std::string_view rest = *list;
    while (!rest.empty()) {
        const auto comma = rest.find(',');
        const auto number = ParseDigits(rest.substr(0, comma), kHexadecimalDigits);
        if (!number || *number > 0xff || comma == rest.size() - 1) {
            return std::nullopt;
        }
        bytes.push_back(static_cast<std::uint8_t>(*number));
        rest.remove_prefix(comma == std::string_view::npos ? rest.size() : comma + 1);
    }
    return bytes;
}

std::string FormatByteList(const Bytes& bytes) {
    std::string text = "[";
    for (const std::uint8_t byte : bytes) {
        if (text.size() > 1) {
            text += ',';
        }
        std::array<char, 2> digits{};
        const auto result = std::to_chars(digits.begin(), digits.end(), byte, 16);
        text.append(digits.begin(), result.ptr);
    }
    text += ']';
    return text;
}

}  // namespace simulator
