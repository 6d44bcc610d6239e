// One log line to the kinds of output whose cost is not that of a reader.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "bench/micro/Require.h"
#include "common/LogLine.h"

namespace {

/// For its scope standard output is a new file beside this program.
class OutputToFile {
public:
    OutputToFile() : before(::dup(STDOUT_FILENO)) {
        const std::string path = std::filesystem::read_symlink("/proc/self/exe").string() + ".log";
        const int file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
        Require(file != -1, "the file for the log cannot be made");
        ::unlink(path.c_str());
        ::dup2(file, STDOUT_FILENO);
        ::close(file);
    }
    OutputToFile(const OutputToFile&) = delete;
    OutputToFile& operator=(const OutputToFile&) = delete;
    ~OutputToFile() {
        ::dup2(before, STDOUT_FILENO);
        ::close(before);
    }

private:
    const int before;
};

void Log(benchmark::State& state) {
    const std::string name = "PDOUT";
    for ([[maybe_unused]] const auto _ : state) {
        LogLine() << "FIN:" << name;
    }
}

/// The least: a line that is ready.
void WriteLine(benchmark::State& state) {
    const std::string line = "14:02:37 140737353824064 FIN:PDOUT\n";
    for ([[maybe_unused]] const auto _ : state) {
        benchmark::DoNotOptimize(::write(STDOUT_FILENO, line.data(), line.size()));
    }
}

void LogToNowhere(benchmark::State& state) {
    Log(state);
}
BENCHMARK(LogToNowhere);

void WriteToNowhere(benchmark::State& state) {
    WriteLine(state);
}
BENCHMARK(WriteToNowhere);

void LogToFile(benchmark::State& state) {
    const OutputToFile file;
    Log(state);
}
BENCHMARK(LogToFile);

void WriteToFile(benchmark::State& state) {
    const OutputToFile file;
    WriteLine(state);
}
BENCHMARK(WriteToFile);

}  // namespace
