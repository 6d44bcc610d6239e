#pragma once

#include <condition_variable>
#include <cstddef>
#include <functional>
#include <list>
#include <mutex>
#include <stop_token>
#include <string>
#include <thread>
#include <vector>

#include "client/Daemon.h"

namespace tavrik {

/// Runs jobs that may take long, such as calls to a silent master, on its own threads; jobs of one
/// subject in sequence. Each job has a connection of its own to the daemon.
class Worker {
public:
    /// Must not throw.
    /// @param dropped whether Drop() was called for it
    using Job = std::function<void(Daemon&, const std::stop_token& dropped)>;

    /// @param threads how many jobs run at the same time
    explicit Worker(const Endpoint& endpoint, std::size_t threads = 1);

    /// Ends the running calls of the jobs within about a second and waits for these jobs. Those
    /// that have not begun are not done.
    ~Worker();
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    /// Any thread may call.
    /// @param subject such as the gripper that the job is for
    /// @return false when too many jobs are waiting, or too many of this subject
    bool Enqueue(Job job, const std::string& subject = "");

    /// Tells the waiting and running jobs of a subject that they are no longer wanted. Any thread
    /// may call.
    void Drop(const std::string& subject);

    /// Requested when this ends: for what a job does without its Daemon.
    std::stop_token Ending() const { return stop.get_token(); }

private:
    struct Entry {
        Job job;
        std::string subject;
        std::stop_source dropped = {};
        bool isRunning = false;
    };
    using Entries = std::list<Entry>;  // an entry stays where it is when others come and go

    void Run();
    Entries::iterator NextLocked();
    bool IsBusyLocked(const std::string& subject) const;

    static constexpr std::size_t kMostWaiting = 64;  // two for each gripper of a large cell
    static constexpr std::ptrdiff_t kMostWaitingForSubject = 4;  // leaves room for the others

    const Endpoint endpoint;
    std::stop_source stop;
    std::mutex mutex;  // guards `jobs`
    std::condition_variable_any changed;
    Entries jobs;                      // in the order in which they came; until they are done
    std::vector<std::thread> threads;  // last: they use all others
};

}  // namespace tavrik
