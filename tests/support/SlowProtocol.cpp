#include "tests/support/SlowProtocol.h"

#include <algorithm>
#include <limits>
#include <sstream>

namespace support {

namespace {

constexpr const char* kBlanks = " \t\r\v\f";
constexpr const char* kDecimalDigits = "0123456789";
constexpr const char* kHexDigits = "0123456789abcdefABCDEF";

bool IsAnyOf(char c, const std::string& set) {
    return set.find(c) != std::string::npos;
}

std::string WithoutBlanks(std::string piece) {
    while (!piece.empty() && IsAnyOf(piece.front(), kBlanks)) {
        piece.erase(0, 1);
    }
    return piece;
}

std::string LeadingDigits(const std::string& piece, const std::string& digits) {
    std::string found;
    for (const char c : piece) {
        if (!IsAnyOf(c, digits)) {
            break;
        }
        found += c;
    }
    return found;
}

/// @return low 8 bits of a hexadecimal number, from its last two digits
std::uint8_t SlowByte(std::string piece) {
    piece = WithoutBlanks(piece);
    if (piece.size() > 1 && piece[0] == '0' && IsAnyOf(piece[1], "xX")) {
        piece.erase(0, 2);
    }
    const std::string digits = "00" + LeadingDigits(piece, kHexDigits);
    return static_cast<std::uint8_t>(std::stoul(digits.substr(digits.size() - 2), nullptr, 16));
}

/// @return a decimal number modulo 2^32
std::uint32_t SlowNumber(const std::string& piece) {
    std::uint64_t number = 0;
    for (const char digit : LeadingDigits(WithoutBlanks(piece), kDecimalDigits)) {
        number = (number * 10 + static_cast<std::uint64_t>(digit - '0')) % (std::uint64_t{1} << 32);
    }
    return static_cast<std::uint32_t>(number);
}

/// @return the list in `text`; nothing if it is invalid
template <typename Element, typename Convert>
std::optional<std::vector<Element>> SlowList(const std::string& text, Convert convert) {
    const std::size_t end = text.find(']');
    if (text.empty() || text[0] != '[' || end == std::string::npos) {
        return std::nullopt;
    }
    std::vector<Element> elements;
    if (end == 1) {
        return elements;
    }
    std::string piece;
    for (const char c : text.substr(1, end - 1) + ",") {
        if (c == ',') {
            elements.push_back(convert(piece));
            piece.clear();
        } else {
            piece += c;
        }
    }
    return elements;
}

/// Removes the text up to `end` from `text` and returns it.
/// @return nothing if `end` is missing
std::optional<std::string> TakeUntil(std::string& text, char end) {
    std::string taken;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == end) {
            text.erase(0, i + 1);
            return taken;
        }
        taken += text[i];
    }
    return std::nullopt;
}

}  // namespace

std::optional<std::vector<std::uint8_t>> SlowByteList(const std::string& text) {
    return SlowList<std::uint8_t>(text, SlowByte);
}

std::optional<std::vector<std::uint32_t>> SlowNumberList(const std::string& text) {
    return SlowList<std::uint32_t>(text, SlowNumber);
}

std::optional<std::pair<std::uint32_t, std::uint32_t>> SlowParameterKey(const std::string& key) {
    std::string rest = key;
    if (TakeUntil(rest, '[') != "PARAM") {
        return std::nullopt;
    }
    const auto index = TakeUntil(rest, ']');
    if (!index || !TakeUntil(rest, '[')) {
        return std::nullopt;
    }
    const auto subindex = TakeUntil(rest, ']');
    if (!subindex) {
        return std::nullopt;
    }
    return std::pair(SlowNumber(*index), SlowNumber(*subindex));
}

int SlowSigned(const std::string& text) {
    std::string rest = WithoutBlanks(text);
    const bool negative = rest.starts_with('-');
    if (negative || rest.starts_with('+')) {
        rest.erase(0, 1);
    }
    using Limits = std::numeric_limits<int>;
    std::int64_t number = 0;
    for (const char digit : LeadingDigits(rest, kDecimalDigits)) {
        number = std::min(number * 10 + (digit - '0'), std::int64_t{Limits::max()} + 1);
    }
    number = negative ? -number : number;
    return static_cast<int>(std::min<std::int64_t>(number, Limits::max()));
}

std::string SlowFormat(const std::vector<std::uint8_t>& bytes) {
    std::ostringstream text;
    text << "[" << std::hex;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        text << (i > 0 ? "," : "") << static_cast<unsigned>(bytes[i]);
    }
    text << "]";
    return text.str();
}

}  // namespace support
