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

/// What could be seen of a gripper at one moment.
struct Observation {
    using Clock = std::chrono::steady_clock;

    Clock::time_point time;
    std::optional<ProcessData> data;               ///< nothing if there is no gripper or no daemon
    std::string trouble;                           ///< why there are no data
    std::optional<Clock::time_point> silentSince;  ///< set while the master does not answer
    bool probed = true;                            ///< whether it is known if the master answers
    bool frozen = false;      ///< the data have not changed since the master fell silent
    std::uint64_t calls = 0;  ///< that the daemon has answered since the begin
};

/// Observes one gripper 20 times a second, in threads and with connections of its own. It goes on
/// when the gripper or the daemon has gone: they may come back.
class GripperMonitor {
public:
    /// @param device its device string
    /// @param passive sends nothing to the gripper: whether its master answers is not known then
    GripperMonitor(const Endpoint& endpoint, const std::string& device, bool passive);

    /// Takes up to about a second, even if the daemon does not answer.
    ~GripperMonitor();
    GripperMonitor(const GripperMonitor&) = delete;
    GripperMonitor& operator=(const GripperMonitor&) = delete;

    /// What has been observed since the last call, oldest first; waits for something until
    /// `patience` has passed.
    std::vector<Observation> Take(std::chrono::milliseconds patience);

private:
    using Clock = Observation::Clock;

    void Sample();
    void AwaitProbe();
    void Probe();
    void ProbeOnce(const Gripper& gripper);
    void Publish(Observation& observation);

    /// @return false when the threads are to end
    bool PauseUntil(Clock::time_point time);

    std::stop_source stop;
    Daemon sampleDaemon;  // the sampler's
    Daemon probeDaemon;   // the prober's
    const std::string gripperName;
    const std::chrono::milliseconds patienceWithProbe;
    std::mutex mutex;  // guards what follows, but the threads
    std::condition_variable_any changed;
    std::vector<Observation> observations;
    SilenceDetector silence;
    std::uint64_t probeCalls = 0;
    std::thread sampler;
    std::thread prober;  // not started if passive
};

}  // namespace tavrik
