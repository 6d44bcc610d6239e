#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <string>
#include <unordered_map>

#include "doctor/log/LogRow.h"

namespace tavrik {

/// Leaves out what a master repeats: one that hangs logs the same lines a thousand times a second.
/// Tells every ten seconds how many were left out.
class LogRepeats {
public:
    using Sink = std::function<void(const LogRow&)>;

    explicit LogRepeats(Sink sink) : sink(std::move(sink)) {}

    /// @param time of the row, which has no call
    void Take(const LogRow& row, std::chrono::microseconds time);

    /// Tells what was left out by masters that have been quiet for `pause`.
    void Flush(std::chrono::microseconds time, std::chrono::microseconds pause);

    /// Tells everything that was left out.
    void Flush();

private:
    struct Recent {
        std::deque<std::string> texts;
        std::chrono::microseconds last{};
        std::chrono::microseconds told{};
        std::uint64_t count = 0;
        LogRow row;  // the last one left out
    };

    void Tell(Recent& recent);

    Sink sink;
    std::unordered_map<std::string, Recent> owners;
};

}  // namespace tavrik
