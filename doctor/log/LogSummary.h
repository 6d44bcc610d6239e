#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "doctor/log/LogRow.h"

namespace tavrik {

/// What a log says in numbers.
struct LogSummary {
    struct Gripper {
        std::uint64_t calls = 0;
        std::uint64_t refusals = 0;
        std::uint64_t timeouts = 0;
        std::optional<std::chrono::microseconds> slowest = {};  ///< of the calls that got an answer
        bool isExact = false;  ///< whether `slowest` is; otherwise it has whole seconds
    };

    void Add(const LogRow& row);

    std::map<std::string, Gripper> grippers;  ///< by name; "" has what could not be assigned
    std::uint64_t lines = 0;
    std::uint64_t starts = 0;
    std::uint64_t plugged = 0;
    std::uint64_t unplugged = 0;
    std::uint64_t reopened = 0;
};

}  // namespace tavrik
