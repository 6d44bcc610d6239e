#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <stop_token>
#include <string>
#include <thread>
#include <vector>

#include "client/Daemon.h"
#include "client/Gripper.h"
#include "client/ProcessData.h"
#include "client/SilenceDetector.h"

namespace tavrik {

/// The state of a gripper at one moment.
struct Observation {
    using Clock = std::chrono::steady_clock;

    std::string gripper;  ///< device string
    Clock::time_point time;
    std::optional<ProcessData> data;               ///< nothing without gripper or daemon
    std::string error;                             ///< why there is no data
    std::optional<Clock::time_point> silentSince;  ///< set while the master does not answer
    bool probed = true;                            ///< whether the master was asked
    bool frozen = false;      ///< the data has not changed since the master fell silent
    std::uint64_t calls = 0;  ///< that the daemon has answered so far
};

/// Which grippers a CellMonitor observes, and how.
struct CellScope {
    std::vector<std::string> devices;  ///< device strings
    bool follow = false;               ///< also observes grippers that the daemon lists later
    bool passive = false;  ///< sends nothing to the grippers: silence of a master is not detected
};

/// Observes grippers 20 times a second each, with two threads and two connections for all of them:
/// the daemon serves only 15. Continues when a gripper or the daemon disappears: they may come
/// back.
class CellMonitor {
public:
    CellMonitor(const Endpoint& endpoint, const CellScope& scope);

    /// Takes up to about a second, even if the daemon does not answer.
    ~CellMonitor();
    CellMonitor(const CellMonitor&) = delete;
    CellMonitor& operator=(const CellMonitor&) = delete;

    /// Takes the observations since the last call, oldest first; waits up to `patience` for one.
    /// One thread at a time.
    std::vector<Observation> Take(std::chrono::milliseconds patience);

private:
    using Clock = Observation::Clock;

    struct Subject {
        Subject(Daemon& sampleDaemon, Daemon& probeDaemon, const std::string& device)
            : sampled(sampleDaemon, device), reader(sampled), probed(probeDaemon, device) {}

        const Gripper sampled;                 // the sampler's, like the next two
        ProcessDataReader reader;              // uses it
        Clock::time_point due = Clock::now();  // of the next sample
        const Gripper probed;                  // the prober's
        SilenceDetector silence;               // guarded by the mutex
    };

    void Sample();
    Clock::time_point SampleDue();
    void SampleOne(Subject& subject);
    void AwaitProbes();
    void Publish(Subject& subject, Observation& observation);

    void Probe();
    void Follow();
    void Add(const std::vector<std::string>& devices);
    void ProbeOne(Subject& subject);

    /// What is observed so far; the elements stay where they are.
    std::vector<Subject*> Subjects();

    /// @return false when the threads must end
    bool PauseUntil(Clock::time_point time);

    const CellScope scope;
    std::stop_source stop;
    Daemon sampleDaemon;  // the sampler's
    Daemon probeDaemon;   // the prober's
    std::mutex mutex;     // guards what follows, except the threads
    std::condition_variable_any changed;
    std::vector<Observation> observations;
    std::deque<Subject> subjects;  // only grows
    std::uint64_t probeCalls = 0;
    std::thread sampler;
    std::thread prober;  // not started if it had nothing to do
};

}  // namespace tavrik
