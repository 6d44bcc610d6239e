#pragma once

#include <string>

#include <xmlrpc-c/base.hpp>
#include <xmlrpc-c/registry.hpp>

/// Short notation for parameters and results of method calls.
namespace values {

inline xmlrpc_c::value ToValue(const std::string& value) {
    return xmlrpc_c::value_string(value);
}
inline xmlrpc_c::value ToValue(const char* value) {
    return xmlrpc_c::value_string(value);
}
inline xmlrpc_c::value ToValue(int value) {
    return xmlrpc_c::value_int(value);
}
inline xmlrpc_c::value ToValue(double value) {
    return xmlrpc_c::value_double(value);
}
inline xmlrpc_c::value ToValue(bool value) {
    return xmlrpc_c::value_boolean(value);
}

template <typename... Arguments>
xmlrpc_c::paramList Parameters(const Arguments&... arguments) {
    xmlrpc_c::paramList parameters;
    (parameters.add(ToValue(arguments)), ...);
    return parameters;
}

/// @return type and value: "int 3", "i8 -5", "double nan", "boolean true", "string x",
///         "array [string x]"
std::string Describe(const xmlrpc_c::value& value);

/// @return the result of `method` as Describe()
std::string Execute(xmlrpc_c::method& method, const xmlrpc_c::paramList& parameters);

}  // namespace values
