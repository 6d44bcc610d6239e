#pragma once

#include <chrono>
#include <optional>

#include "client/ProcessData.h"

namespace tavrik {

/// Tells whether a gripper's process data is frozen. The daemon keeps returning the last data of a
/// silent master; so the master is probed, and its data must have changed since.
class SilenceDetector {
public:
    using TimePoint = std::chrono::steady_clock::time_point;

    /// Takes the process data read at `time`; nothing if there was none.
    void AddData(const std::optional<ProcessData>& data, TimePoint time);

    /// Takes whether the master has answered a probe that began at `start`.
    void AddProbe(bool answered, TimePoint start);

    /// Whether there was a probe.
    bool IsProbed() const { return probed; }

    /// Start of the first of the latest probes without answer.
    std::optional<TimePoint> SilentSince() const { return silentSince; }

    /// Whether the data has not changed since then.
    bool IsFrozen() const;

private:
    std::optional<ProcessData> lastData;
    std::optional<TimePoint> lastChange;
    std::optional<TimePoint> silentSince;
    bool probed = false;
};

}  // namespace tavrik
