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

/// What one of the classes that address a gripper is to do.
struct MethodFacts {
    std::string className;
    std::string signature;
    /// What is read: s(tring), i(nt), d(ouble), b(oolean).
    std::string parameters;
    Check check;
    /// Answer when there is no such gripper, or it is of another model.
    std::string fallback;
    /// Answer on a gripper of a GripperCell that has the operation.
    std::string answer;
    /// Request line that Arguments() lead to; empty when there is none.
    std::string request;
    std::function<std::unique_ptr<xmlrpc_c::method>(GripperManager*)> create;
};

/// For the reports of failed tests.
inline void PrintTo(const MethodFacts& method, std::ostream* out) {
    *out << method.className;
}

/// The 35 classes that address a gripper.
const std::vector<MethodFacts>& AllMethods();

const MethodFacts& FactsOf(const std::string& className);

/// `device` and sample values of the right types: 2 and 7 for ints, 12.5, true.
std::vector<xmlrpc_c::value> Arguments(const MethodFacts& method, const std::string& device);

xmlrpc_c::paramList ToParameters(const std::vector<xmlrpc_c::value>& arguments);

/// What the method answers to the sample values; manager is that of GripperCell.
std::string SampleAnswer(const MethodFacts& method, const std::string& device);
