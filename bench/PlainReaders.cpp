// plain-readers: what the process data of many masters costs at the very least.

#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <exception>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "bench/PlainReader.h"
#include "bench/ProcessorTime.h"

namespace bench {
namespace {

constexpr int kSleepersPerTty = 2;
constexpr std::chrono::milliseconds kNap{10};

void Sleep(const std::atomic<bool>& stopping) {
    while (!stopping.load(std::memory_order_relaxed)) {
        std::this_thread::sleep_for(kNap);
    }
}

void Report(const std::deque<PlainReader>& readers) {
    std::uint64_t lines = 0;
    std::uint64_t wrong = 0;
    for (const PlainReader& reader : readers) {
        lines += reader.Lines();
        wrong += reader.WrongLines();
    }
    std::printf("{\"lines\": %llu, \"cpuNs\": %lld, \"wrong\": %llu}\n",
                static_cast<unsigned long long>(lines),
                static_cast<long long>(ProcessorTime().count()),
                static_cast<unsigned long long>(wrong));
}

void Run(const std::vector<std::string>& ttys, bool withSleepers) {
    sigset_t interrupt;
    sigemptyset(&interrupt);
    sigaddset(&interrupt, SIGINT);
    pthread_sigmask(SIG_BLOCK, &interrupt, nullptr);

    std::deque<PlainReader> readers;
    for (const std::string& tty : ttys) {
        readers.emplace_back(tty);
    }
    std::atomic<bool> stopping = false;
    {
        std::vector<std::jthread> threads;
        for (PlainReader& reader : readers) {
            threads.emplace_back([&reader, &stopping] { reader.Run(stopping); });
            for (int count = 0; withSleepers && count < kSleepersPerTty; ++count) {
                threads.emplace_back([&stopping] { Sleep(stopping); });
            }
        }
        constexpr std::string_view kStarted = "started\n";
        [[maybe_unused]] const auto written =
            write(STDOUT_FILENO, kStarted.data(), kStarted.size());
        int number = 0;
        sigwait(&interrupt, &number);
        stopping = true;
    }
    Report(readers);
}

}  // namespace
}  // namespace bench

int main(int argc, char** argv) {
    std::vector<std::string> ttys(argv + 1, argv + argc);
    const bool withSleepers = std::erase(ttys, "--sleepers") != 0;
    if (ttys.empty() || ttys.front().starts_with("--")) {
        std::fputs("Usage: plain-readers [--sleepers] TTY...\n", stderr);
        return 2;
    }
    try {
        bench::Run(ttys, withSleepers);
        return EXIT_SUCCESS;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "plain-readers: error: %s\n", error.what());
        return EXIT_FAILURE;
    }
}
