#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <xmlrpc-c/base.hpp>

#include "client/Failure.h"

namespace tavrik {

/// @throws Failure (Usage) if `text` is not an integer of 32 bits, or not a finite number
int ParseInteger(const std::string& text);
double ParseReal(const std::string& text);
/// Takes true, on, yes, 1 and false, off, no, 0.
bool ParseBoolean(const std::string& text);

/// The Failure (Usage) for `text` that is not what was `expected`, such as "an integer".
Failure InvalidText(const std::string& expected, const std::string& text);

/// A flag in words.
std::string OnOffText(bool on);

/// A position or limit with its two decimals.
std::string HundredthsText(double value);

/// A reply as JSON; floating point numbers are rounded to hundredths, the daemon's unit.
nlohmann::ordered_json ToJson(const xmlrpc_c::value& value);

/// JSON as a parameter.
/// @param levels the deepest nesting of arrays and objects; the XML-RPC library accepts 64
/// @throws std::out_of_range for more levels, and for an integer of more than 32 bits
xmlrpc_c::value ToValue(const nlohmann::ordered_json& json, int levels = 64);

}  // namespace tavrik
