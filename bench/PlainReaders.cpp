// plain-readers [--sleepers] TTY...: the lower bound for reading the process data of many masters.
// One thread for each tty splits lines and decodes them; with --sleepers, two more sleep 10 ms
// repeatedly. SIGINT ends it; it then prints the number of lines, and how many were wrong.

#include <termios.h>

#include <array>
#include <atomic>
#include <charconv>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <exception>
#include <string>
#include <string_view>
#include <system_error>
#include <thread>
#include <vector>

#include "bench/MasterTty.h"
#include "simulator/FileDescriptor.h"

namespace bench {
namespace {

/// Reads "@PDIN=[9,c4,0,3]".
/// @return false for every other line; `input` is then undefined
bool Decode(std::string_view line, std::array<std::uint8_t, 4>& input) {
    constexpr std::string_view kStart = "@PDIN=[";
    if (!line.starts_with(kStart)) {
        return false;
    }
    const char* place = line.data() + kStart.size();
    const char* const end = line.data() + line.size();
    for (std::size_t index = 0; index < input.size(); ++index) {
        const auto result = std::from_chars(place, end, input[index], 16);
        const char expected = index + 1 < input.size() ? ',' : ']';
        if (result.ec != std::errc() || result.ptr == end || *result.ptr != expected) {
            return false;
        }
        place = result.ptr + 1;
    }
    return place == end;
}

/// Splits the output of one master into lines and decodes its process data.
class PlainReader {
public:
    explicit PlainReader(const std::string& path) : tty(OpenTty(path)) {}

    /// Reads until `stopping` is set, which it notices within 1 s, or until the tty hangs up.
    void Run(const std::atomic<bool>& stopping) {
        while (!stopping.load(std::memory_order_relaxed)) {
            if (!ReadLines(tty, text, [this](std::string_view line) { TakeLine(line); })) {
                termios settings{};
                if (tcgetattr(tty.Get(), &settings) == -1) {
                    return;  // hung up, not just silent
                }
            }
        }
    }

    std::uint64_t lines = 0;
    std::uint64_t wrong = 0;

private:
    /// The first line may lack its beginning.
    void TakeLine(std::string_view line) {
        if (!Decode(line, latest) && lines != 0) {
            ++wrong;
        }
        ++lines;
    }

    simulator::FileDescriptor tty;
    std::string text;
    std::array<std::uint8_t, 4> latest{};
};

void Sleep(const std::atomic<bool>& stopping) {
    while (!stopping.load(std::memory_order_relaxed)) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
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
            for (int count = 0; withSleepers && count < 2; ++count) {
                threads.emplace_back([&stopping] { Sleep(stopping); });
            }
        }
        std::puts("started");
        std::fflush(stdout);
        int number = 0;
        sigwait(&interrupt, &number);
        stopping = true;
    }
    unsigned long long lines = 0;
    unsigned long long wrong = 0;
    for (const PlainReader& reader : readers) {
        lines += reader.lines;
        wrong += reader.wrong;
    }
    std::printf("{\"lines\": %llu, \"wrong\": %llu}\n", lines, wrong);
}

}  // namespace
}  // namespace bench

int main(int argc, char** argv) {
    std::vector<std::string> ttys(argv + 1, argv + argc);
    const bool withSleepers = std::erase(ttys, "--sleepers") != 0;
    if (ttys.empty()) {
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
