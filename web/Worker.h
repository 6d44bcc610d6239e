#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <stop_token>
#include <string>
#include <thread>

#include "client/Daemon.h"

namespace tavrik {

/// Does what may take long, such as calls to a master that does not answer: one job after the
/// other, on a thread of its own. Its connection to the daemon exists only during a job.
class Worker {
public:
    /// @param dropped whether Drop() was called for it
    using Job = std::function<void(Daemon&, const std::stop_token& dropped)>;

    explicit Worker(const Endpoint& endpoint);

    /// Ends the job that is running within about a second; the others are dropped.
    ~Worker();
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    /// Any thread may call.
    /// @param subject for Drop()
    /// @return false when too many jobs are waiting
    bool Do(Job job, const std::string& subject = "");

    /// Tells the jobs of a subject that they are not wanted any more: those that wait and the one
    /// that is running. Any thread may call.
    void Drop(const std::string& subject);

private:
    struct Entry {
        Job job;
        std::string subject;
        std::stop_source dropped = {};
    };

    void Run();

    static constexpr std::size_t kMostWaiting = 32;

    const Endpoint endpoint;
    std::stop_source stop;
    std::mutex mutex;  // guards `jobs`
    std::condition_variable_any changed;
    std::deque<Entry> jobs;  // the first one stays while it is running
    std::thread thread;      // last: uses all others
};

}  // namespace tavrik
