#pragma once

#include <span>
#include <string>
#include <string_view>
#include <xmlrpc-c/base.hpp>

namespace tavrik {

/// A method of the daemon, with the types that it really reads: those that system.methodSignature
/// tells differ.
struct Method {
    std::string_view name;
    /// A letter for each parameter: g device string, i integer, d floating point number, b boolean,
    /// s any string, a array written in JSON.
    std::string_view parameters;
    bool answersStatus = false;
};

/// All methods, the XML-RPC library's own (system.*) too.
std::span<const Method> Methods();

/// What `method` takes, in words, as in "SetForce GRIPPER INTEGER INTEGER".
std::string Usage(const Method& method);

/// @return nothing when there is no such method
const Method* FindMethod(std::string_view name);

/// The value of a parameter whose type is `letter`, as in Method.
/// @throws Failure (Usage)
xmlrpc_c::value ParseArgument(char letter, const std::string& text);

}  // namespace tavrik
