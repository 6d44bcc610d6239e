#pragma once

#include <CLI/App.hpp>
#include <chrono>
#include <string>

namespace tavrik {

// Checks for CLI11: what is wrong with `text` as the value of an option, empty if nothing is.

/// Accepts no leading zero: CLI11 reads 010 as 8.
std::string CheckDecimal(const std::string& text);
std::string CheckNotEmpty(const std::string& text);

/// Declares the option `name` of `app`: a time in seconds, from a millisecond to an hour. `time`
/// gets it, when it is given.
CLI::Option* AddTimeOption(CLI::App& app, const std::string& name, std::chrono::milliseconds& time,
                           const std::string& description);

}  // namespace tavrik
