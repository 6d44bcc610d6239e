#pragma once

#include <string>
#include <xmlrpc-c/base.hpp>

namespace tavrikctl {

/// @throws Failure (Usage) when `text` is not what its name says
int ParseInteger(const std::string& text);
double ParseReal(const std::string& text);
/// Takes true, on, yes, 1 and false, off, no, 0.
bool ParseBoolean(const std::string& text);

/// What is wrong with `text` as the value of an option; empty if nothing is. CLI11 takes 010 for 8.
std::string IsDecimal(const std::string& text);
std::string IsThere(const std::string& text);

/// The value of the parameter type `letter`, as in Method.
/// @throws Failure (Usage)
xmlrpc_c::value ParseArgument(char letter, const std::string& text);

}  // namespace tavrikctl
