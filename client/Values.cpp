#include "client/Values.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <limits>
#include <nlohmann/json.hpp>
#include <stdexcept>
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
        throw InvalidText(what, text);
    }
    return number;
}

double RoundToHundredths(double number) {
    constexpr double kStepsPerUnit = 100;
    return std::round(number * kStepsPerUnit) / kStepsPerUnit;
}

int CheckedInteger(const nlohmann::ordered_json& json) {
    using Limits = std::numeric_limits<int>;
    const auto number = json.get<double>();  // takes any integer, and those of 32 bits exactly
    if (number < Limits::min() || number > Limits::max()) {
        throw std::out_of_range("an integer exceeds 32 bits");
    }
    return static_cast<int>(number);
}

}  // namespace

Failure InvalidText(const std::string& expected, const std::string& text) {
    return {ExitStatus::Usage, "'" + Printable(text) + "' is not " + expected};
}

int ParseInteger(const std::string& text) {
    return ParseNumber<int>(text, "an integer");
}

double ParseReal(const std::string& text) {
    const auto number = ParseNumber<double>(text, "a number");
    if (!std::isfinite(number)) {  // XML-RPC has no infinity and no NaN
        throw InvalidText("a number", text);
    }
    return number;
}

bool ParseBoolean(const std::string& text) {
    constexpr std::array<std::string_view, 4> kTrue{"true", "on", "yes", "1"};
    constexpr std::array<std::string_view, 4> kFalse{"false", "off", "no", "0"};
    const bool isTrue = std::ranges::find(kTrue, text) != kTrue.end();
    if (!isTrue && std::ranges::find(kFalse, text) == kFalse.end()) {
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

// Recursion ends: the XML-RPC library takes no more than 64 levels.
// NOLINTBEGIN(misc-no-recursion)

nlohmann::ordered_json ToJson(const xmlrpc_c::value& value) {
    nlohmann::ordered_json json = nlohmann::ordered_json::array();
    switch (value.type()) {
        case xmlrpc_c::value::TYPE_INT:
            return xmlrpc_c::value_int(value).cvalue();
        case xmlrpc_c::value::TYPE_I8:
            return xmlrpc_c::value_i8(value).cvalue();
        case xmlrpc_c::value::TYPE_BOOLEAN:
            return xmlrpc_c::value_boolean(value).cvalue();
        case xmlrpc_c::value::TYPE_DOUBLE:
            return RoundToHundredths(xmlrpc_c::value_double(value).cvalue());
        case xmlrpc_c::value::TYPE_STRING:
            return xmlrpc_c::value_string(value).cvalue();
        case xmlrpc_c::value::TYPE_ARRAY:
            for (const auto& element : xmlrpc_c::value_array(value).cvalue()) {
                json.push_back(ToJson(element));
            }
            return json;
        case xmlrpc_c::value::TYPE_STRUCT:
            json = nlohmann::ordered_json::object();
            for (const auto& [name, member] : xmlrpc_c::value_struct(value).cvalue()) {
                json[name] = ToJson(member);
            }
            return json;
        default:
            return nullptr;
    }
}

xmlrpc_c::value ToValue(const nlohmann::ordered_json& json, int levels) {
    if (levels == 0) {
        throw std::out_of_range("nested too deeply");
    }
    if (json.is_boolean()) {
        return xmlrpc_c::value_boolean(json.get<bool>());
    }
    if (json.is_number_integer()) {
        return xmlrpc_c::value_int(CheckedInteger(json));
    }
    if (json.is_number()) {
        return xmlrpc_c::value_double(json.get<double>());
    }
    if (json.is_string()) {
        return xmlrpc_c::value_string(json.get<std::string>());
    }
    if (json.is_array()) {
        xmlrpc_c::carray array;
        for (const nlohmann::ordered_json& element : json) {
            array.push_back(ToValue(element, levels - 1));
        }
        return xmlrpc_c::value_array(array);
    }
    if (json.is_object()) {
        xmlrpc_c::cstruct members;
        for (const auto& [name, member] : json.items()) {
            members.emplace(name, ToValue(member, levels - 1));
        }
        return xmlrpc_c::value_struct(members);
    }
    return xmlrpc_c::value_nil();
}

// NOLINTEND(misc-no-recursion)

}  // namespace tavrik
