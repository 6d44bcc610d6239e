#pragma once

#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include <xmlrpc-c/base.hpp>
#include <xmlrpc-c/registry.hpp>

#include "pellix/GripperManager.h"

enum class Check { kNone, kHva, kMzd };

/// Expected properties of one method class.
struct MethodFacts {
    std::string className;
    std::string signature;
    /// Types of the parameters that it reads: s(tring), i(nt), d(ouble), b(oolean).
    std::string parameters;
    Check check;
    /// Result for an unknown gripper or one of another model.
    std::string fallback;
    /// Result for a gripper of a GripperCell that has the operation.
    std::string answer;
    /// Request line that a call with Arguments() sends; empty if none.
    std::string request;
    std::function<std::unique_ptr<xmlrpc_c::method>(GripperManager*)> create;
};

/// Shows a method in the report of a failed test.
inline void PrintTo(const MethodFacts& method, std::ostream* out) {
    *out << method.className;
}

/// @return the classes that address a gripper
const std::vector<MethodFacts>& AllMethods();

const MethodFacts& FactsOf(const std::string& className);

/// @return `device` and sample values of the right types: 2 and 7 for ints, 12.5, true
std::vector<xmlrpc_c::value> Arguments(const MethodFacts& method, const std::string& device);

xmlrpc_c::paramList ToParameters(const std::vector<xmlrpc_c::value>& arguments);

/// @return the result of a call with the sample values through GripperCell::Manager()
std::string SampleAnswer(const MethodFacts& method, const std::string& device);
