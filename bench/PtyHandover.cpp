// pty-handover: what a command costs at the very least, a way to the master and back with two
// threads.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>
#include <string_view>
#include <vector>

#include "bench/Handover.h"
#include "bench/Percentile.h"
#include "bench/ProcessorTime.h"
#include "simulator/TextTools.h"

namespace bench {
namespace {

constexpr unsigned kMostRounds = 10000000;
constexpr unsigned kWarmUpRounds = 200;  // not counted

struct HandoverOptions {
    unsigned rounds = 0;
    std::string tty = "/dev/ttyACM0";
};

HandoverOptions ParseOptions(const std::vector<std::string>& arguments) {
    const std::size_t count = arguments.size();
    if ((count != 2 && count != 3) || arguments.front() != "--rounds") {
        throw simulator::UsageError("pty-handover --rounds N [TTY]");
    }
    HandoverOptions options{simulator::ParseUnsigned(arguments[1], kMostRounds)};
    if (options.rounds == 0) {
        throw simulator::UsageError("--rounds takes a number above 0");
    }
    if (count == 3) {
        options.tty = arguments[2];
    }
    return options;
}

void Run(const HandoverOptions& options) {
    Handover handover(options.tty);
    for (unsigned round = 0; round < kWarmUpRounds; ++round) {
        handover.Round();
    }
    std::vector<std::chrono::nanoseconds> times(options.rounds);
    const auto start = ProcessorTime();
    std::ranges::generate(times, [&handover] { return handover.Round(); });
    const auto processorTime = ProcessorTime() - start;
    std::ranges::sort(times);
    std::printf(
        "{\"rounds\": %u, \"p50Us\": %.2f, \"p90Us\": %.2f, \"p99Us\": %.2f, "
        "\"cpuNsPerRound\": %.0f}\n",
        options.rounds, PercentileUs(times, 50), PercentileUs(times, 90), PercentileUs(times, 99),
        static_cast<double>(processorTime.count()) / options.rounds);
}

}  // namespace
}  // namespace bench

int main(int argc, char** argv) {
    try {
        bench::Run(bench::ParseOptions({argv + 1, argv + argc}));
        return EXIT_SUCCESS;
    } catch (const simulator::UsageError& error) {
        std::fprintf(stderr, "usage: %s\n", error.what());
        return 2;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "pty-handover: error: %s\n", error.what());
        return EXIT_FAILURE;
    }
}
