#pragma once

#include <span>
#include <string_view>

namespace tavrikctl {

/// What a method answers.
enum class Answer { Status, Number, Flag, Real, Text, List, Any };

/// A method of the daemon, with the types that it really reads: those that system.methodSignature
/// tells differ.
struct Method {
    std::string_view name;
    /// A letter for each parameter: g device string, i integer, d floating point number, b boolean,
    /// s any string, a array written in JSON.
    std::string_view parameters;
    Answer answer;
};

/// All methods, the XML-RPC library's own (system.*) too.
std::span<const Method> Methods();

/// @return nothing when there is no such method
const Method* FindMethod(std::string_view name);

}  // namespace tavrikctl
