#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <latch>
#include <string>
#include <vector>

#include "bench/ExpectedValue.h"
#include "bench/LoadConnection.h"
#include "bench/SharedTime.h"

namespace bench {

/// One connection that is kept busy: the next call follows when the last is answered. Its results
/// are for others when Run() has returned.
class LoadClient {
public:
    using Clock = std::chrono::steady_clock;

    static constexpr unsigned kWarmUpCalls = 50;

    /// @param ownFinTime null, or where the master leaves the time of its FIN: a latency is then
    ///     the time from there to the last byte that the server sends
    LoadClient(LoadConnection&& openConnection, const ExpectedValue& expectedValue,
               SharedTime* ownFinTime = nullptr);

    /// Makes kWarmUpCalls calls or some more that do not count, waits for the other clients, and
    /// makes calls for so long, or until none are left, or until the connection is of no more use.
    /// @param callsLeft of all clients together
    void Run(std::latch& warmedUp, std::atomic<std::int64_t>& callsLeft, Clock::duration time);

    unsigned WarmUpCalls() const { return warmUpCalls; }

    /// Of each counted call, in their order.
    const std::vector<std::chrono::nanoseconds>& Latencies() const { return latencies; }

    Clock::time_point Start() const { return start; }
    Clock::time_point End() const { return end; }

    /// Answers that were not the expected one, and calls without an answer; also before the start.
    std::uint64_t Wrong() const { return wrong; }

    /// Empty if there was none.
    const std::string& FirstWrong() const { return firstWrong; }

private:
    bool IsWarm() const;
    bool Call();
    std::chrono::nanoseconds SinceFin();
    void NoteWrong(const std::string& reason);

    LoadConnection connection;
    ExpectedValue expected;
    SharedTime* finTime;
    std::vector<std::chrono::nanoseconds> latencies;
    Clock::time_point start;
    Clock::time_point end;
    unsigned warmUpCalls = 0;
    std::uint64_t wrong = 0;
    std::string firstWrong;
};

}  // namespace bench
