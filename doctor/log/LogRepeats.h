#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <string>
#include <unordered_map>

#include "doctor/log/LogRow.h"

namespace tavrik {

/// Leaves out what is repeated: a master that hangs logs the same lines a thousand times a second,
/// and a client that reads all settings asks for hundreds that do not exist. Reports every ten
/// seconds how many rows were left out.
class LogRepeats {
public:
    using Sink = std::function<void(const LogRow&)>;

    /// @param name of the rows: "lines"
    LogRepeats(std::string name, Sink sink) : name(std::move(name)), sink(std::move(sink)) {}

    /// Takes a row; leaves it out if an earlier row of its master had the same text or method.
    void Take(const LogRow& row, std::chrono::microseconds time);

    /// Reports what was left out of a master, because another row of it follows.
    void Flush(const LogRow& next);

    /// Reports what was left out of masters that have logged nothing for `pause`.
    void Flush(std::chrono::microseconds time, std::chrono::microseconds pause);

    /// Reports everything that was left out.
    void Flush();

private:
    struct Recent {
        std::deque<std::string> texts;
        std::chrono::microseconds last{};
        std::chrono::microseconds reported{};
        std::uint64_t count = 0;
        LogRow row;  // the last one left out
    };

    void Report(Recent& recent);

    std::string name;
    Sink sink;
    std::unordered_map<std::string, Recent> owners;
};

}  // namespace tavrik
