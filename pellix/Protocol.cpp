#include "pellix/Protocol.h"

#include <array>
#include <charconv>
#include <limits>
#include <utility>

namespace pellix {

namespace {

constexpr std::array kModeNames = {"DL_NONE",    "DL_ESTABCOMM", "DL_STARTUP", "DL_PREOPERATE",
                                   "DL_OPERATE", "DL_FALLBACK",  "DL_BLMODE",  "DL_POWERFAULT"};

constexpr std::uint8_t kNoDigit = 99;

/// Value of each character code as a digit of base 16 or lower.
constexpr auto kDigitValues = [] {
    std::array<std::uint8_t, 256> values{};
    values.fill(kNoDigit);
    for (unsigned i = 0; i < 10; ++i) {
        values['0' + i] = static_cast<std::uint8_t>(i);
    }
    for (unsigned i = 10; i < 16; ++i) {
        values['a' + i - 10] = values['A' + i - 10] = static_cast<std::uint8_t>(i);
    }
    return values;
}();

unsigned DigitValue(char c) {
    return kDigitValues[static_cast<unsigned char>(c)];
}

bool IsBlank(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r' && c != '\n');
}

/// Hand-written, because std::string_view::find_first_not_of() costs more than reading the number.
std::string_view SkipBlanks(std::string_view text) {
    while (!text.empty() && IsBlank(text.front())) {
        text.remove_prefix(1);
    }
    return text;
}

/// Finds the text between the first "[" at or after `start` and the next "]".
struct Brackets {
    std::string_view content;
    std::size_t end;  ///< position after the "]"
};

std::optional<Brackets> FindBrackets(std::string_view text, std::size_t start) {
    const std::size_t open = text.find('[', start);
    const std::size_t close = open == std::string_view::npos ? open : text.find(']', open);
    if (close == std::string_view::npos) {
        return std::nullopt;
    }
    return Brackets{text.substr(open + 1, close - open - 1), close + 1};
}

/// Removes the leading number from `text` and returns it; see ReadUnsigned().
std::uint32_t TakeUnsigned(std::string_view& text, unsigned base) {
    text = SkipBlanks(text);
    if (base == 16 && (text.starts_with("0x") || text.starts_with("0X"))) {
        text.remove_prefix(2);
    }
    std::uint32_t value = 0;
    while (!text.empty()) {
        const unsigned digit = DigitValue(text.front());
        if (digit >= base) {
            break;
        }
        value = value * base + digit;  // wraps: the low bits stay exact
        text.remove_prefix(1);
    }
    return value;
}

/// Works in one pass: a line of process data is too short for a search ahead to pay off.
/// @param elements storage for the result
template <typename Element>
std::optional<std::vector<Element>> ReadList(std::string_view text, unsigned base,
                                             std::vector<Element> elements) {
    if (!text.starts_with('[')) {
        return std::nullopt;
    }
    text.remove_prefix(1);
    elements.clear();
    if (text.starts_with(']')) {
        return elements;
    }
    while (!text.empty()) {
        elements.push_back(static_cast<Element>(TakeUnsigned(text, base)));
        while (!text.empty() && text.front() != ',' && text.front() != ']') {
            text.remove_prefix(1);
        }
        if (text.starts_with(']')) {
            return elements;
        }
        text.remove_prefix(text.empty() ? 0 : 1);
    }
    return std::nullopt;
}

}  // namespace

std::string ModeName(int mode) {
    const bool known = mode >= 0 && static_cast<std::size_t>(mode) < kModeNames.size();
    return known ? kModeNames[static_cast<std::size_t>(mode)] : "[unknown]";
}

std::string FormatByteList(const std::vector<std::uint8_t>& bytes) {
    std::string text = "[";
    for (const std::uint8_t byte : bytes) {
        if (text.size() > 1) {
            text += ',';
        }
        std::array<char, 2> digits;
        char* const end =
            std::to_chars(digits.data(), digits.data() + digits.size(), unsigned{byte}, 16).ptr;
        text.append(digits.data(), end);
    }
    text += ']';
    return text;
}

std::string FormatParameterKey(ParameterAddress address) {
    return std::string(kKeyParameter) + "[" + std::to_string(address.index) + "][" +
           std::to_string(address.subindex) + "]";
}

std::uint32_t ReadUnsigned(std::string_view text, unsigned base) {
    return TakeUnsigned(text, base);
}

int ReadSigned(std::string_view text) {
    text = SkipBlanks(text);
    if (text.starts_with("+-")) {
        return 0;
    }
    if (text.starts_with('+')) {  // which std::from_chars rejects
        text.remove_prefix(1);
    }
    int value = 0;
    const auto read = std::from_chars(text.data(), text.data() + text.size(), value);
    if (read.ec == std::errc::result_out_of_range) {
        return text.starts_with('-') ? std::numeric_limits<int>::min()
                                     : std::numeric_limits<int>::max();
    }
    return value;
}

std::optional<std::vector<std::uint8_t>> ReadByteList(std::string_view text,
                                                      std::vector<std::uint8_t> storage) {
    return ReadList(text, 16, std::move(storage));
}

std::optional<std::vector<std::uint32_t>> ReadNumberList(std::string_view text) {
    return ReadList(text, 10, std::vector<std::uint32_t>());
}

std::optional<ParameterAddress> ReadParameterKey(std::string_view key) {
    if (key.substr(0, key.find('[')) != kKeyParameter) {
        return std::nullopt;
    }
    const auto index = FindBrackets(key, 0);
    const auto subindex = index ? FindBrackets(key, index->end) : std::nullopt;
    if (!subindex) {
        return std::nullopt;
    }
    return ParameterAddress{ReadUnsigned(index->content, 10), ReadUnsigned(subindex->content, 10)};
}

}  // namespace pellix
