#pragma once

#include <span>
#include <string>
#include <string_view>
#include <xmlrpc-c/base.hpp>

#include "client/GripperModels.h"

namespace tavrik {

/// A method of the daemon, with the types that it really reads: system.methodSignature returns
/// others.
struct Method {
    std::string_view name;
    /// A letter for each parameter: g device string, i integer, d floating point number, b boolean,
    /// s any string, a array in JSON.
    std::string_view parameters;
    bool answersStatus = false;
    Feature needs = Feature::None;  ///< what a model must have to support it
};

/// All methods, including the XML-RPC library's own (system.*).
std::span<const Method> Methods();

/// The usage of `method`, as in "SetForce GRIPPER INTEGER INTEGER".
std::string Usage(const Method& method);

/// @return null if there is no such method
const Method* FindMethod(std::string_view name);

/// The value of a parameter whose type is `letter`, as in Method.
/// @throws Failure (Usage)
xmlrpc_c::value ParseArgument(char letter, const std::string& text);

}  // namespace tavrik
