#pragma once

#include <chrono>
#include <optional>

#include "tools/ProcessData.h"

namespace tavrikctl {

/// Tells whether a gripper's process data are frozen. The daemon goes on answering the last ones of
/// a master that has fallen silent; so the master is probed, and its data must have changed since.
class SilenceDetector {
public:
    using TimePoint = std::chrono::steady_clock::time_point;

    /// Takes the process data read at `time`; nothing if there were none.
    void AddData(const std::optional<ProcessData>& data, TimePoint time);

    /// Takes whether the master has answered a probe that began at `start`.
    void AddProbe(bool answered, TimePoint start);

    /// Whether there was a probe at all.
    bool IsProbed() const { return probed; }

    /// Begin of the first probe since which none has been answered.
    std::optional<TimePoint> SilentSince() const { return silentSince; }

    /// Whether the data have not changed since then.
    bool IsFrozen() const;

private:
    std::optional<ProcessData> lastData;
    std::optional<TimePoint> lastChange;
    std::optional<TimePoint> silentSince;
    bool probed = false;
};

}  // namespace tavrikctl
