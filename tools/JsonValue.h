#pragma once

#include <nlohmann/json_fwd.hpp>
#include <xmlrpc-c/base.hpp>

namespace tavrikctl {

/// An answer as JSON; floating point numbers are rounded to the hundredths that the daemon means.
nlohmann::ordered_json ToJson(const xmlrpc_c::value& value);

/// JSON as a parameter.
/// @throws std::out_of_range for an integer of more than 32 bits
xmlrpc_c::value ToValue(const nlohmann::ordered_json& json);

}  // namespace tavrikctl
