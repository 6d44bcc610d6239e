// Times of the daemon's own classes, each beside the least that its work can cost. What they log
// goes nowhere, and counts.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>
#include <ext/stdio_filebuf.h>

#include <condition_variable>
#include <exception>
#include <iostream>
#include <mutex>
#include <stop_token>
#include <thread>

namespace {

/// The log goes to the descriptor of standard output, the report to std::cout: they part here.
class PartedOutput {
public:
    PartedOutput() : report(::dup(STDOUT_FILENO), std::ios::out), before(std::cout.rdbuf(&report)) {
        const int nowhere = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
        ::dup2(nowhere, STDOUT_FILENO);
        ::close(nowhere);
    }
    PartedOutput(const PartedOutput&) = delete;
    PartedOutput& operator=(const PartedOutput&) = delete;
    ~PartedOutput() { std::cout.rdbuf(before); }

private:
    __gnu_cxx::stdio_filebuf<char> report;
    std::streambuf* const before;
};

/// The C library takes locks without atomic operations while a process has one thread only, which
/// the daemon's never has.
void SleepUntilStopped(const std::stop_token& stop) {
    std::mutex mutex;
    std::unique_lock<std::mutex> lock(mutex);
    std::condition_variable_any().wait(lock, stop, [] { return false; });
}

}  // namespace

int main(int count, char** arguments) {
    benchmark::Initialize(&count, arguments);
    if (benchmark::ReportUnrecognizedArguments(count, arguments)) {
        return 1;
    }
    try {
        const PartedOutput output;
        const std::jthread second(SleepUntilStopped);
        benchmark::RunSpecifiedBenchmarks();
    } catch (const std::exception& failure) {
        std::cerr << "bench-micro: " << failure.what() << '\n';
        return 1;
    }
    return 0;
}
