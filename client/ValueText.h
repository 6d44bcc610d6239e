#pragma once

#include <string>

#include "client/Failure.h"

namespace tavrik {

/// @throws Failure (Usage) when `text` is not what its name says
int ParseInteger(const std::string& text);
double ParseReal(const std::string& text);
/// Takes true, on, yes, 1 and false, off, no, 0.
bool ParseBoolean(const std::string& text);

/// The Failure (Usage) of `text` that is not `what`, such as "an integer".
Failure NotA(const std::string& what, const std::string& text);

/// A flag as a person reads it.
std::string OnOffText(bool on);

/// A position or limit with its two decimals.
std::string HundredthsText(double value);

}  // namespace tavrik
