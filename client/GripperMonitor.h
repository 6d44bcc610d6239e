#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <optional>
#include <stop_token>
#include <string>
#include <thread>
#include <vector>

#include "client/Daemon.h"
#include "client/Gripper.h"
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

/// The state of a gripper at one moment.
struct Observation {
    using Clock = std::chrono::steady_clock;

    Clock::time_point time;
    std::optional<ProcessData> data;               ///< nothing without gripper or daemon
    std::string error;                             ///< why there is no data
    std::optional<Clock::time_point> silentSince;  ///< set while the master does not answer
    bool probed = true;                            ///< whether the master was asked
    bool frozen = false;      ///< the data has not changed since the master fell silent
    std::uint64_t calls = 0;  ///< that the daemon has answered so far
};

/// Observes one gripper 20 times a second, in threads and with connections of its own. Continues
/// when the gripper or the daemon disappears: they may come back.
class GripperMonitor {
public:
    /// @param device device string of the gripper
    /// @param passive sends nothing to the gripper: silence of its master is not detected then
    GripperMonitor(const Endpoint& endpoint, const std::string& device, bool passive);

    /// Takes up to about a second, even if the daemon does not answer.
    ~GripperMonitor();
    GripperMonitor(const GripperMonitor&) = delete;
    GripperMonitor& operator=(const GripperMonitor&) = delete;

    /// The observations since the last call, oldest first; waits up to `patience` for one.
    std::vector<Observation> Take(std::chrono::milliseconds patience);

private:
    using Clock = Observation::Clock;

    void Sample();
    void AwaitProbe();
    void Probe();
    void ProbeOnce(const Gripper& gripper);
    void Publish(Observation& observation);

    /// @return false when the threads must end
    bool PauseUntil(Clock::time_point time);

    std::stop_source stop;
    Daemon sampleDaemon;  // the sampler's
    Daemon probeDaemon;   // the prober's
    const std::string device;
    const std::chrono::milliseconds patienceWithProbe;
    std::mutex mutex;  // guards what follows, except the threads
    std::condition_variable_any changed;
    std::vector<Observation> observations;
    SilenceDetector silence;
    std::uint64_t probeCalls = 0;
    std::thread sampler;
    std::thread prober;  // not started if passive
};

}  // namespace tavrik
