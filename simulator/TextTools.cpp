#include "simulator/TextTools.h"

#include <charconv>
#include <cmath>
#include <system_error>

#include "simulator/UsageError.h"

namespace simulator {

namespace {

/// Reads all of `text` as a number, in the way of std::from_chars.
template <typename Number, typename... Format>
Number ParseAll(std::string_view text, Format... format) {
    Number number{};
    const auto* const end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, number, format...);
    if (text.empty() || result.ec != std::errc() || result.ptr != end) {
        throw UsageError("not a number: '" + std::string(text) + "'");
    }
    return number;
}

constexpr std::string_view kEscapeNames = "nrt\\0";
constexpr std::string_view kEscapedBytes{"\n\r\t\\\0", 5};

/// Takes the escape off the front of `rest`, which stands behind the backslash.
char TakeEscape(std::string_view& rest) {
    const auto name = rest.empty() ? std::string_view::npos : kEscapeNames.find(rest.front());
    if (name != std::string_view::npos) {
        rest.remove_prefix(1);
        return kEscapedBytes[name];
    }
    if (!rest.starts_with('x') || rest.size() < 3) {
        throw UsageError("unknown escape");
    }
    const auto byte = ParseAll<std::uint8_t>(rest.substr(1, 2), 16);
    rest.remove_prefix(3);
    return static_cast<char>(byte);
}

}  // namespace

std::string Unescape(std::string_view text) {
    std::string plain;
    while (!text.empty()) {
        const char first = text.front();
        text.remove_prefix(1);
        plain += first == '\\' ? TakeEscape(text) : first;
    }
    return plain;
}

std::string Escape(std::string_view bytes) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    std::string text;
    for (std::size_t place = 0; place < bytes.size(); ++place) {
        const auto byte = static_cast<unsigned char>(bytes[place]);
        const bool outerBlank = byte == ' ' && (place == 0 || place == bytes.size() - 1);
        const auto name = kEscapedBytes.find(bytes[place]);
        if (name != std::string_view::npos) {
            text += {'\\', kEscapeNames[name]};
        } else if (byte < ' ' || byte > '~' || outerBlank) {
            text += {'\\', 'x', kDigits[byte >> 4U], kDigits[byte & 0xfU]};
        } else {
            text += bytes[place];
        }
    }
    return text;
}

unsigned ParseUnsigned(std::string_view text, unsigned largest) {
    const auto number = ParseAll<unsigned>(text);
    if (number > largest) {
        throw UsageError("larger than " + std::to_string(largest) + ": " + std::string(text));
    }
    return number;
}

std::uint8_t ParseHexadecimalByte(std::string_view text) {
    return ParseAll<std::uint8_t>(text, 16);
}

double ParseDecimal(std::string_view text) {
    const auto number = ParseAll<double>(text);
    if (!std::isfinite(number)) {
        throw UsageError("not a number: '" + std::string(text) + "'");
    }
    return number;
}

bool ParseOnOff(std::string_view text) {
    if (text != "on" && text != "off") {
        throw UsageError("neither on nor off: '" + std::string(text) + "'");
    }
    return text == "on";
}

QueryEnd ParseQueryEnd(std::string_view text) {
    if (text != "fin" && text != "data") {
        throw UsageError("neither fin nor data: '" + std::string(text) + "'");
    }
    return text == "fin" ? QueryEnd::Finish : QueryEnd::DataLine;
}

std::vector<std::string> Split(std::string_view text, char separator) {
    std::vector<std::string> parts;
    while (!text.empty()) {
        const auto end = text.find(separator);
        parts.emplace_back(text.substr(0, end));
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    }
    return parts;
}

}  // namespace simulator
