// pty-handover TTY ROUNDS: the lower bound for a command, a round trip to the master with two
// threads: one writes and sleeps, the other reads the answer and wakes it.

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <mutex>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "bench/MasterTty.h"
#include "simulator/FileDescriptor.h"

namespace bench {
namespace {

using Clock = std::chrono::steady_clock;

constexpr int kWarmUpRounds = 200;  // not counted
constexpr std::chrono::seconds kPatience{1};
constexpr std::string_view kRequest = "PDOUT=[3,1]\n";
constexpr std::string_view kLastLine = "FIN PDOUT";

class Handover {
public:
    explicit Handover(const std::string& path)
        : tty(OpenTty(path)), reader([this](const std::stop_token& stop) { Read(stop); }) {}

    /// Sends once more, to end the other thread's read. Takes 1 s if the master is silent.
    ~Handover() {
        reader.request_stop();
        Send();
    }
    Handover(const Handover&) = delete;
    Handover& operator=(const Handover&) = delete;

    /// Sends process output and waits for the answer.
    /// @return the time that this took
    /// @throws std::runtime_error if there is no answer within 1 s
    std::chrono::nanoseconds Round() {
        const auto start = Clock::now();
        {
            const std::lock_guard lock(mutex);
            answered = false;
        }
        if (!Send()) {
            throw std::runtime_error("the tty takes no request");
        }
        std::unique_lock lock(mutex);
        if (!condition.wait_for(lock, kPatience, [this] { return answered; })) {
            throw std::runtime_error("the master does not answer");
        }
        return Clock::now() - start;
    }

private:
    bool Send() const {
        return write(tty.Get(), kRequest.data(), kRequest.size()) == std::ssize(kRequest);
    }

    void Read(const std::stop_token& stop) {
        std::string text;
        while (!stop.stop_requested()) {
            ReadLines(tty, text, [this](std::string_view line) { TakeLine(line); });
        }
    }

    void TakeLine(std::string_view line) {
        if (line != kLastLine) {
            return;
        }
        {
            const std::lock_guard lock(mutex);
            answered = true;
        }
        condition.notify_one();
    }

    simulator::FileDescriptor tty;
    std::mutex mutex;  // guards answered
    std::condition_variable condition;
    bool answered = false;
    std::jthread reader;
};

void Run(const std::string& path, std::size_t rounds) {
    Handover handover(path);
    for (int round = 0; round < kWarmUpRounds; ++round) {
        handover.Round();
    }
    std::vector<std::chrono::nanoseconds> times(rounds);
    const std::clock_t start = std::clock();  // processor time, of both threads
    std::ranges::generate(times, [&handover] { return handover.Round(); });
    const double cpuUs = 1e6 / CLOCKS_PER_SEC * static_cast<double>(std::clock() - start);
    const auto middle = times.begin() + std::ssize(times) / 2;
    std::ranges::nth_element(times, middle);
    std::printf("{\"p50Us\": %.2f, \"cpuUs\": %.3f}\n",
                std::chrono::duration<double, std::micro>(*middle).count(),
                cpuUs / static_cast<double>(rounds));
}

}  // namespace
}  // namespace bench

int main(int argc, char** argv) {
    const std::size_t rounds = argc == 3 ? std::strtoul(argv[2], nullptr, 10) : 0;
    if (rounds == 0) {
        std::fputs("Usage: pty-handover TTY ROUNDS\n", stderr);
        return 2;
    }
    try {
        bench::Run(argv[1], rounds);
        return EXIT_SUCCESS;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "pty-handover: error: %s\n", error.what());
        return EXIT_FAILURE;
    }
}
