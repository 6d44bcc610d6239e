#pragma once

#include <nlohmann/json_fwd.hpp>
#include <xmlrpc-c/base.hpp>

namespace tavrik {

/// An answer as JSON; floating point numbers are rounded to the hundredths that the daemon means.
nlohmann::ordered_json ToJson(const xmlrpc_c::value& value);

/// JSON as a parameter.
/// @param levels how deep arrays and objects may lie in each other; the XML-RPC library takes 64
/// @throws std::out_of_range for more levels, and for an integer of more than 32 bits
xmlrpc_c::value ToValue(const nlohmann::ordered_json& json, int levels = 64);

}  // namespace tavrik
