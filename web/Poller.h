#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <stop_token>
#include <string>
#include <thread>
#include <vector>

#include "client/Daemon.h"
#include "web/Cell.h"
#include "web/MasterWatch.h"

namespace tavrik {

/// Reads the whole cell for all viewers over one connection: ten times a second while a page is
/// open, twice a second while only metrics are collected, otherwise not at all. Meanwhile, a
/// MasterWatch checks that the masters answer.
class Poller {
public:
    using Clock = std::chrono::steady_clock;

    /// Called after each reading, on the poller's thread.
    /// @param isNew whether more than the values has changed
    using Listener = std::function<void(const Cell& cell, bool isNew)>;

    /// @param countViewers how many viewers there are
    Poller(const Endpoint& endpoint, std::function<std::size_t()> countViewers, Listener listener);

    /// Takes up to about a second.
    ~Poller();
    Poller(const Poller&) = delete;
    Poller& operator=(const Poller&) = delete;

    /// A viewer has come: reads at once.
    void Wake();

    /// The cell for a collector of metrics, usually at most a second old. Waits up to 15 ms for a
    /// new reading; otherwise returns the previous one. Keeps the readings going for a minute.
    Cell ReadForMetrics();

    /// The cell as it was read last.
    Cell Latest() const;

private:
    void Run();
    std::chrono::milliseconds Period() const;
    void Update(CellGripper& gripper, const ProcessData& data, Clock::time_point now);
    bool AwaitWork(Clock::time_point last);
    void Read();
    bool ReadList();
    bool ReadValues();
    void Publish(bool isNew);

    std::stop_source stop;
    Daemon daemon;
    MasterWatch masters;
    const std::function<std::size_t()> countViewers;
    const Listener listener;

    // The poller's thread alone.
    Cell cell;
    Clock::time_point nextList{};
    Clock::time_point nextWithoutData{};  // when grippers without data are read in full again

    mutable std::mutex mutex;  // guards what follows; taken before EventHub's
    mutable std::condition_variable_any changed;
    Cell latest;
    Clock::time_point latestAt{};
    Clock::time_point metricsUntil{};
    bool isWoken = false;

    std::thread thread;  // last: uses all others
};

}  // namespace tavrik
