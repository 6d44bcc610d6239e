#include "simulator/TextTools.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <fstream>
#include <sstream>
#include <system_error>
#include <utility>

namespace simulator {

namespace {

std::string Quoted(std::string_view text) {
    return "'" + std::string(text) + "'";
}

/// Parses all of `text` with std::from_chars.
template <typename Number, typename... Format>
Number ParseAll(std::string_view text, Format... format) {
    Number number{};
    const auto* const end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, number, format...);
    if (text.empty() || result.ec != std::errc() || result.ptr != end) {
        throw UsageError("invalid number " + Quoted(text));
    }
    return number;
}

constexpr std::string_view kEscapeNames = "nrt\\0";
constexpr std::string_view kEscapedBytes{"\n\r\t\\\0", 5};

/// Removes an escape from the front of `rest`, which starts after the backslash.
char TakeEscape(std::string_view& rest) {
    const auto name = rest.empty() ? std::string_view::npos : kEscapeNames.find(rest.front());
    if (name != std::string_view::npos) {
        rest.remove_prefix(1);
        return kEscapedBytes[name];
    }
    if (!rest.starts_with('x') || rest.size() < 3) {
        throw UsageError("unknown escape " + Quoted("\\" + std::string(rest.substr(0, 1))));
    }
    const auto byte = ParseHexadecimalByte(rest.substr(1, 2));
    rest.remove_prefix(3);
    return static_cast<char>(byte);
}

constexpr std::string_view kBlanks = " \t\r";

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
        throw UsageError("invalid number " + Quoted(text) + ": the maximum is " +
                         std::to_string(largest));
    }
    return number;
}

std::uint8_t ParseHexadecimalByte(std::string_view text) {
    return ParseAll<std::uint8_t>(text, 16);
}

double ParseDecimal(std::string_view text) {
    const auto number = ParseAll<double>(text);
    if (!std::isfinite(number)) {
        throw UsageError("invalid number " + Quoted(text));
    }
    return number;
}

bool ParseChoice(std::string_view text, std::string_view first, std::string_view second) {
    if (text != first && text != second) {
        throw UsageError("invalid value " + Quoted(text) + ": expected " + std::string(first) +
                         " or " + std::string(second));
    }
    return text == first;
}

std::string ReadFile(const std::string& path) {
    errno = 0;
    std::ifstream file(path);
    std::ostringstream text;
    const bool isOpen = file.is_open();
    text << file.rdbuf();  // fails for an empty file too, but without an error
    if (!isOpen || errno != 0) {
        throw std::system_error(errno, std::generic_category(), "cannot read " + path);
    }
    return text.str();
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

std::string CommandWords::Take() {
    const auto word = TakeIfAny();
    if (!word) {
        throw UsageError("missing argument");
    }
    return *word;
}

std::optional<std::string> CommandWords::TakeIfAny() {
    if (rest.empty()) {
        return std::nullopt;
    }
    const std::string word(rest.substr(0, rest.find_first_of(kBlanks)));
    rest.remove_prefix(word.size());
    SkipBlanks();
    return word;
}

std::string CommandWords::TakeRest() {
    return std::string(std::exchange(rest, {}));
}

void CommandWords::End() const {
    if (!rest.empty()) {
        throw UsageError("unexpected argument " + Quoted(rest));
    }
}

void CommandWords::SkipBlanks() {
    rest.remove_prefix(std::min(rest.find_first_not_of(kBlanks), rest.size()));
}

}  // namespace simulator
