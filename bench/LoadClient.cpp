#include "bench/LoadClient.h"

#include <exception>
#include <utility>

namespace bench {

namespace {

/// Address space only, until it is used: a vector that moves while calls are timed shows in them.
constexpr std::size_t kRoomForCalls = std::size_t{1} << 20;

constexpr unsigned kMostWarmUpCalls = 100 * LoadClient::kWarmUpCalls;

}  // namespace

LoadClient::LoadClient(LoadConnection&& openConnection, const ExpectedValue& expectedValue,
                       SharedTime* ownFinTime)
    : connection(std::move(openConnection)), expected(expectedValue), finTime(ownFinTime) {
    if (finTime != nullptr) {
        connection.NoteArrivals();
    }
    latencies.reserve(kRoomForCalls);
}

void LoadClient::Run(std::latch& warmedUp, std::atomic<std::int64_t>& callsLeft,
                     Clock::duration time) {
    bool usable = true;
    while (usable && !IsWarm()) {
        usable = Call();
        ++warmUpCalls;
    }
    warmedUp.arrive_and_wait();

    start = Clock::now();
    end = start;
    while (usable && end - start < time && callsLeft.fetch_sub(1) > 0) {
        const auto called = end;
        usable = Call();
        end = Clock::now();
        if (usable) {
            latencies.push_back(finTime == nullptr ? end - called : SinceFin());
        }
    }
}

/// The kernel begins to note arrivals a moment after it was told to.
bool LoadClient::IsWarm() const {
    const bool isReady =
        finTime == nullptr || connection.Arrival() != SharedTime::Clock::time_point();
    return warmUpCalls >= (isReady ? kWarmUpCalls : kMostWarmUpCalls);
}

/// @return whether the connection can be used further
bool LoadClient::Call() {
    try {
        const std::string_view body = connection.Call();
        if (!expected.IsOnlyValueOf(body)) {
            NoteWrong("wrong answer: " + std::string(body));
        }
        return true;
    } catch (const std::exception& error) {
        NoteWrong(error.what());
        return false;
    }
}

std::chrono::nanoseconds LoadClient::SinceFin() {
    const auto fin = finTime->Take();
    if (!fin || connection.Arrival() < *fin) {
        NoteWrong("no FIN before the answer");
        return {};
    }
    return connection.Arrival() - *fin;
}

void LoadClient::NoteWrong(const std::string& reason) {
    if (wrong++ == 0) {
        firstWrong = reason;
    }
}

}  // namespace bench
