#pragma once

#include <string>

#include <xmlrpc-c/base.hpp>
#include <xmlrpc-c/registry.hpp>

/// Parameters and results of method calls, as short as tests want them.
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

/// Type and value: "int 3", "i8 -5", "double nan", "boolean true", "string x", "array [string x]".
std::string Describe(const xmlrpc_c::value& value);

/// What `method` answers.
std::string Execute(xmlrpc_c::method& method, const xmlrpc_c::paramList& parameters);

}  // namespace values
