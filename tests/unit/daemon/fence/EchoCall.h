#pragma once

#include <string>

/// Calls a method that returns its parameter, the XML of one value.
/// @param prologue XML before the call
/// @return the XML of the response
std::string Answer(const std::string& value, const std::string& prologue = {});

bool Contains(const std::string& text, const std::string& part);
