// bench-load: keeps servers busy with one call, checks every answer, and tells how long they took.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <exception>
#include <limits>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "bench/LoadClient.h"
#include "bench/LoadOptions.h"
#include "bench/Percentile.h"
#include "bench/SharedTime.h"
#include "simulator/TextTools.h"

namespace bench {
namespace {

constexpr int kUsageStatus = 2;

constexpr const char* kUsage =
    "bench-load --ports P[,P2] --connections C (--seconds S | --calls N)\n"
    "           --method M --device TEXT [--int N] --expect TEXT [--fin-file FILE]\n"
    "--fin-file: a call lasts from the time in FILE, by bench-cell, to the last byte sent\n";

std::deque<LoadClient> Connect(const LoadOptions& options, SharedTime* finTime) {
    const std::string request = BuildRequest(options);
    const ExpectedValue expected(options.expected);
    std::deque<LoadClient> clients;
    for (unsigned number = 0; number < options.connections; ++number) {
        const unsigned port = options.ports[number % options.ports.size()];
        clients.emplace_back(LoadConnection(port, request), expected, finTime);
    }
    return clients;
}

void RunAll(std::deque<LoadClient>& clients, const LoadOptions& options) {
    using Clock = LoadClient::Clock;
    std::atomic<std::int64_t> callsLeft = std::numeric_limits<std::int64_t>::max();
    Clock::duration time = Clock::duration::max();
    if (options.calls) {
        callsLeft = static_cast<std::int64_t>(*options.calls);
    } else {
        time = std::chrono::duration_cast<Clock::duration>(
            std::chrono::duration<double>(*options.seconds));
    }
    std::latch warmedUp(static_cast<std::ptrdiff_t>(clients.size()));
    std::deque<std::jthread> threads;
    for (LoadClient& client : clients) {
        threads.emplace_back([&, time] { client.Run(warmedUp, callsLeft, time); });
    }
}

/// @return the number of wrong answers
std::uint64_t Report(const std::deque<LoadClient>& clients) {
    std::vector<std::chrono::nanoseconds> latencies;
    auto start = LoadClient::Clock::time_point::max();
    auto end = LoadClient::Clock::time_point::min();
    unsigned warmUpCalls = 0;
    std::uint64_t wrong = 0;
    for (const LoadClient& client : clients) {
        latencies.insert(latencies.end(), client.Latencies().begin(), client.Latencies().end());
        start = std::min(start, client.Start());
        end = std::max(end, client.End());
        warmUpCalls += client.WarmUpCalls();
        wrong += client.Wrong();
    }
    std::sort(latencies.begin(), latencies.end());
    const double seconds = std::chrono::duration<double>(end - start).count();
    const auto calls = static_cast<double>(latencies.size());
    const auto percentile = [&](double percent) {
        return latencies.empty() ? 0 : PercentileUs(latencies, percent);
    };
    std::printf(
        "{\"warmUpCalls\": %u, \"calls\": %zu, \"seconds\": %.6f, \"callsPerSecond\": %.1f, "
        "\"p50Us\": %.2f, \"p90Us\": %.2f, \"p99Us\": %.2f, \"p999Us\": %.2f, \"maxUs\": %.2f, "
        "\"wrong\": %llu}\n",
        warmUpCalls, latencies.size(), seconds, latencies.empty() ? 0 : calls / seconds,
        percentile(50), percentile(90), percentile(99), percentile(99.9), percentile(100),
        static_cast<unsigned long long>(wrong));
    return wrong;
}

int Run(const std::vector<std::string>& arguments) {
    const LoadOptions options = ParseLoadOptions(arguments);
    std::optional<SharedTime> finTime;
    if (!options.finFile.empty()) {
        finTime.emplace(options.finFile);
    }
    std::deque<LoadClient> clients = Connect(options, finTime ? &*finTime : nullptr);
    RunAll(clients, options);
    if (Report(clients) == 0) {
        return EXIT_SUCCESS;
    }
    const auto first = std::ranges::find_if(clients, &LoadClient::Wrong);
    std::fprintf(stderr, "bench-load: %s\n", first->FirstWrong().c_str());
    return EXIT_FAILURE;
}

}  // namespace
}  // namespace bench

int main(int argc, char** argv) {
    try {
        return bench::Run({argv + 1, argv + argc});
    } catch (const simulator::UsageError& error) {
        std::fprintf(stderr, "bench-load: usage: %s\n%s", error.what(), bench::kUsage);
        return bench::kUsageStatus;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "bench-load: error: %s\n", error.what());
        return EXIT_FAILURE;
    }
}
