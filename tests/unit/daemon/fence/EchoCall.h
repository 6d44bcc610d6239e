#pragma once

#include <string>

/// The response to a call of a method that answers its parameter, with the XML of one value.
/// @param prologue stands before the call
std::string Answer(const std::string& value, const std::string& prologue = {});

bool Contains(const std::string& text, const std::string& part);
