#include "tools/Arguments.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string_view>

#include "tools/Failure.h"
#include "tools/JsonValue.h"
#include "tools/Printable.h"

namespace tavrikctl {

namespace {

Failure NotA(const std::string& what, const std::string& text) {
    return {ExitStatus::Usage, "'" + Printable(text) + "' is no " + what};
}

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

xmlrpc_c::value ParseText(const std::string& text) {
    try {
        return xmlrpc_c::value_string(text);
    } catch (const std::exception&) {
        throw NotA("UTF-8", text);
    }
}

xmlrpc_c::value ParseJson(const std::string& text) {
    const auto json = nlohmann::ordered_json::parse(text, nullptr, false);
    if (!json.is_array()) {
        throw NotA("array in JSON", text);
    }
    try {
        return ToValue(json);
    } catch (const std::out_of_range& excess) {
        throw Failure(ExitStatus::Usage, "'" + Printable(text) + "' has " + excess.what());
    }
}

}  // namespace

std::string IsDecimal(const std::string& text) {
    const bool isDecimal =
        text == "0" ||
        (text.find_first_not_of("0123456789") == std::string::npos && !text.starts_with('0'));
    return isDecimal ? "" : "'" + text + "' is no decimal number";
}

std::string IsThere(const std::string& text) {
    return text.empty() ? "is empty" : "";
}

int ParseInteger(const std::string& text) {
    return ParseNumber<int>(text, "integer");
}

double ParseReal(const std::string& text) {
    const auto number = ParseNumber<double>(text, "number");
    if (!std::isfinite(number)) {  // XML-RPC has none of these
        throw NotA("number", text);
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

xmlrpc_c::value ParseArgument(char letter, const std::string& text) {
    switch (letter) {
        case 'i':
            return xmlrpc_c::value_int(ParseInteger(text));
        case 'd':
            return xmlrpc_c::value_double(ParseReal(text));
        case 'b':
            return xmlrpc_c::value_boolean(ParseBoolean(text));
        case 'a':
            return ParseJson(text);
        default:
            return ParseText(text);
    }
}

}  // namespace tavrikctl
