#pragma once

#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <optional>
#include <stop_token>
#include <string>
#include <thread>

#include "client/Daemon.h"
#include "client/ProcessData.h"
#include "client/SilenceDetector.h"

namespace tavrik {

/// Polls the masters of grippers at rest, up to four a second: the daemon keeps returning the last
/// data of a master that no longer answers. On a thread and a connection of its own, because a
/// request without answer takes a second.
class MasterWatch {
public:
    using TimePoint = SilenceDetector::TimePoint;

    explicit MasterWatch(const Endpoint& endpoint);

    /// Takes up to about a second.
    ~MasterWatch();
    MasterWatch(const MasterWatch&) = delete;
    MasterWatch& operator=(const MasterWatch&) = delete;

    /// Takes what was read of a gripper; grippers without readings are not polled. Any thread may
    /// call.
    /// @param period how often its master is polled; each second while it is silent
    /// @return since when the data is old, if it is
    std::optional<TimePoint> Check(const std::string& device, const ProcessData& data,
                                   TimePoint time, std::chrono::milliseconds period);

private:
    struct Subject {
        SilenceDetector silence = {};
        std::optional<ProcessData> data = {};
        TimePoint checked = {};
        TimePoint changed = {};
        TimePoint polled = {};
        std::chrono::milliseconds period{};
    };

    void Run();
    std::string NextDue(TimePoint now);
    void Poll(Daemon& daemon, const std::string& device);

    const Endpoint endpoint;
    std::stop_source stop;
    std::mutex mutex;  // guards what follows
    std::condition_variable_any changed;
    std::map<std::string, Subject> subjects;  // by device string; empty while nothing is read
    std::thread thread;                       // last: uses all others
};

}  // namespace tavrik
