#include "client/ValueText.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <string_view>

#include "client/Printable.h"

namespace tavrik {

namespace {

template <typename Number>
Number ParseNumber(const std::string& text, const std::string& what) {
    Number number{};
    const char* const end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, number);
    if (result.ec != std::errc() || result.ptr != end) {
        throw NotA(what, text);
    }
    return number;
}

}  // namespace

Failure NotA(const std::string& what, const std::string& text) {
    return {ExitStatus::Usage, "'" + Printable(text) + "' is not " + what};
}

int ParseInteger(const std::string& text) {
    return ParseNumber<int>(text, "an integer");
}

double ParseReal(const std::string& text) {
    const auto number = ParseNumber<double>(text, "a number");
    if (!std::isfinite(number)) {  // XML-RPC has none of these
        throw NotA("a number", text);
    }
    return number;
}

bool ParseBoolean(const std::string& text) {
    constexpr std::array<std::string_view, 4> kTrue{"true", "on", "yes", "1"};
    constexpr std::array<std::string_view, 4> kFalse{"false", "off", "no", "0"};
    const bool isTrue = std::find(kTrue.begin(), kTrue.end(), text) != kTrue.end();
    if (!isTrue && std::find(kFalse.begin(), kFalse.end(), text) == kFalse.end()) {
        throw Failure(ExitStatus::Usage, "'" + Printable(text) + "' is neither on nor off");
    }
    return isTrue;
}

std::string OnOffText(bool on) {
    return on ? "on" : "off";
}

std::string HundredthsText(double value) {
    constexpr std::size_t kLongest = 320;  // of the largest number, with its sign
    std::array<char, kLongest> text{};
    std::snprintf(text.data(), text.size(), "%.2f", value);
    return text.data();
}

}  // namespace tavrik
