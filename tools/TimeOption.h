#pragma once

#include <CLI/App.hpp>
#include <chrono>
#include <string>

namespace tavrikctl {

/// Declares the option `name` of `app`: a time in seconds, from a millisecond to an hour. `time`
/// gets it, when it is given.
CLI::Option* AddTimeOption(CLI::App& app, const std::string& name, std::chrono::milliseconds& time,
                           const std::string& description);

}  // namespace tavrikctl
