// bench-micro: times of the daemon's own classes, each beside the lower bound for its work. Their
// logging counts; it goes to /dev/null.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <iostream>
#include <iterator>
#include <list>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <stop_token>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "common/LogLine.h"
#include "pellix/Command.h"
#include "pellix/CommandHandler.h"
#include "pellix/CorvaneGripper.h"
#include "pellix/DeviceHandler.h"
#include "pellix/LinkRegistry.h"
#include "pellix/Protocol.h"
#include "tests/support/FakeMaster.h"

namespace {

using Bytes = std::vector<std::uint8_t>;

/// Ends the run unless the measured code has done its work.
/// @throws std::runtime_error with the text `failure`
void Require(bool condition, const char* failure) {
    if (!condition) {
        throw std::runtime_error(failure);
    }
}

// Texts that are sent to a master.

/// Bytes of one and of two digits.
std::vector<std::uint8_t> MakeBytes(std::int64_t count) {
    std::vector<std::uint8_t> bytes;
    for (std::int64_t byte = 0; byte < count; ++byte) {
        bytes.push_back(static_cast<std::uint8_t>(byte * 8));
    }
    return bytes;
}

void FormatByteList(benchmark::State& state) {
    const auto bytes = MakeBytes(state.range(0));
    for ([[maybe_unused]] const auto _ : state) {
        benchmark::DoNotOptimize(pellix::FormatByteList(bytes));
    }
}
BENCHMARK(FormatByteList)->Arg(2)->Arg(32);

/// Lower bound: digits from a table into a buffer, and the text that is returned.
std::string FormatByHand(const std::vector<std::uint8_t>& bytes) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    std::array<char, 128> buffer;
    char* end = buffer.data();
    *end++ = '[';
    for (const std::uint8_t byte : bytes) {
        if (byte > 0x0f) {
            *end++ = kDigits[byte >> 4U];
        }
        *end++ = kDigits[byte & 0x0fU];
        *end++ = ',';
    }
    end[-1] = ']';  // replaces the last comma
    return {buffer.data(), end};
}

void FormatByteListByHand(benchmark::State& state) {
    const auto bytes = MakeBytes(state.range(0));
    for ([[maybe_unused]] const auto _ : state) {
        benchmark::DoNotOptimize(FormatByHand(bytes));
    }
    Require(FormatByHand(bytes) == pellix::FormatByteList(bytes), "the two lists differ");
}
BENCHMARK(FormatByteListByHand)->Arg(2)->Arg(32);

void FormatParameterKey(benchmark::State& state) {
    constexpr pellix::ParameterAddress kAddress{.index = 96, .subindex = 3};
    for ([[maybe_unused]] const auto _ : state) {
        benchmark::DoNotOptimize(pellix::FormatParameterKey(kAddress));
    }
    Require(pellix::FormatParameterKey(kAddress) == "PARAM[96][3]", "a wrong key");
}
BENCHMARK(FormatParameterKey);

void FormatLine(benchmark::State& state, const pellix::Command& command, std::string_view line) {
    for ([[maybe_unused]] const auto _ : state) {
        benchmark::DoNotOptimize(command.FormatLine());
    }
    Require(command.FormatLine() == line, "a wrong line");
}

void FormatQuery(benchmark::State& state) {
    FormatLine(state, {"PDOUT", pellix::kQuery, {}}, "PDOUT?\n");
}
BENCHMARK(FormatQuery);

void FormatAssignment(benchmark::State& state) {
    FormatLine(state, {"PDOUT", pellix::kAssignment, {"[3,1]"}}, "PDOUT=[3,1]\n");
}
BENCHMARK(FormatAssignment);

// One log line, to outputs without a reader, whose cost would count.

/// Redirects standard output during its lifetime.
class Redirection {
public:
    /// Owns `file`.
    explicit Redirection(int file) : before(::dup(STDOUT_FILENO)) {
        Require(file != -1, "failed to create the file for the log");
        ::dup2(file, STDOUT_FILENO);
        ::close(file);
    }
    Redirection(const Redirection&) = delete;
    Redirection& operator=(const Redirection&) = delete;
    ~Redirection() {
        ::dup2(before, STDOUT_FILENO);
        ::close(before);
    }

private:
    const int before;
};

/// A new file beside this program, which disappears when it is closed.
int UnnamedFile() {
    const std::string path = std::filesystem::read_symlink("/proc/self/exe").string() + ".log";
    const int file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    ::unlink(path.c_str());
    return file;
}

void Log(benchmark::State& state) {
    const std::string name = "PDOUT";
    for ([[maybe_unused]] const auto _ : state) {
        LogLine() << "FIN:" << name;
    }
}

/// Lower bound: a complete line.
void WriteLine(benchmark::State& state) {
    const std::string line = "14:02:37 140737353824064 FIN:PDOUT\n";
    for ([[maybe_unused]] const auto _ : state) {
        benchmark::DoNotOptimize(::write(STDOUT_FILENO, line.data(), line.size()));
    }
}

BENCHMARK(Log)->Name("LogToNowhere");
BENCHMARK(WriteLine)->Name("WriteToNowhere");

void LogToFile(benchmark::State& state) {
    const Redirection output(UnnamedFile());
    Log(state);
}
BENCHMARK(LogToFile);

void WriteToFile(benchmark::State& state) {
    const Redirection output(UnnamedFile());
    WriteLine(state);
}
BENCHMARK(WriteToFile);

// One pass of the input parser over the bytes of one read.

const Bytes kPdin = {0x09, 0xc4, 0x00, 0x03};
constexpr std::string_view kPdinLine = "@PDIN=[9,c4,0,3]\n";
constexpr std::size_t kReadSize = 4096;  // the most that the daemon reads at once
constexpr double kTimeout = 1.0;         // seconds

/// Every read returns the same text.
class RepeatingConnection : public pellix::Connection {
public:
    explicit RepeatingConnection(std::string_view read) : text(read) {}
    std::string Read() override { return text; }
    int Write(const std::string& /*text*/) override { return 0; }
    void Reopen() override {}

private:
    const std::string text;
};

std::string PdinLines(std::size_t count) {
    std::string text;
    for (std::size_t line = 0; line < count; ++line) {
        text += kPdinLine;
    }
    return text;
}

/// Reports the lines and bytes of all passes.
void Count(benchmark::State& state, std::string_view text) {
    const auto lines = std::count(text.begin(), text.end(), '\n');
    state.SetItemsProcessed(state.iterations() * lines);
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
}

/// The parser of a link, without tty and threads.
class ParserOfLink {
public:
    /// @param read the text that every pass parses
    explicit ParserOfLink(std::string_view read)
        : text(read), commands(new RepeatingConnection(read), &device, kTimeout) {}

    void Run(benchmark::State& state) {
        for ([[maybe_unused]] const auto _ : state) {
            commands.Parse();
        }
        Count(state, text);
    }

    pellix::Device& Model() const { return device.GetDevice(); }
    pellix::CommandHandler& Commands() { return commands; }

private:
    const std::string text;
    pellix::DeviceHandler device;
    pellix::CommandHandler commands;
};

void ParsePdin(benchmark::State& state, std::string_view text) {
    ParserOfLink link(text);
    link.Run(state);
    Require(link.Model().GetPDIN() == kPdin, "PDIN was not stored");
}

/// @param reached the state that `text` gives to a pending command
void ParseStatus(benchmark::State& state, std::string_view text, pellix::CommandState reached) {
    ParserOfLink link(text);
    pellix::Command* const command = link.Commands().SendAssignment("PDOUT", "[3,1]");
    link.Run(state);
    Require(command->GetState() == reached, "the command's state was not set");
    link.Commands().RemovePending(command);
}

/// Lower bound: PDIN lines split and decoded into four bytes.
void DecodeByHand(benchmark::State& state, std::string_view text) {
    constexpr std::string_view kStart = "@PDIN=[";
    Bytes bytes(kPdin.size());
    for ([[maybe_unused]] const auto _ : state) {
        std::string_view rest = text;
        for (std::size_t end = 0; (end = rest.find('\n')) != std::string_view::npos;
             rest.remove_prefix(end + 1)) {
            if (!rest.starts_with(kStart)) {
                continue;
            }
            const char* at = rest.data() + kStart.size();
            for (std::uint8_t& byte : bytes) {
                at = std::from_chars(at, rest.data() + end, byte, 16).ptr + 1;
            }
            benchmark::DoNotOptimize(bytes.data());
            benchmark::ClobberMemory();
        }
    }
    Count(state, text);
    Require(bytes == kPdin, "PDIN was not decoded");
}

void ParseUnexpected(benchmark::State& state, std::string_view text) {
    ParserOfLink(text).Run(state);
}

const std::string kPdinChunk = PdinLines(kReadSize / kPdinLine.size());

BENCHMARK_CAPTURE(ParsePdin, chunk, kPdinChunk)->Name("ParsePdinChunk");
BENCHMARK_CAPTURE(DecodeByHand, chunk, kPdinChunk)->Name("DecodePdinChunkByHand");
BENCHMARK_CAPTURE(ParsePdin, line, kPdinLine)->Name("ParsePdinLine");
BENCHMARK_CAPTURE(DecodeByHand, line, kPdinLine)->Name("DecodePdinLineByHand");
BENCHMARK_CAPTURE(ParseStatus, ack, "ACK PDOUT\n", pellix::kAcknowledged)->Name("ParseAck");
BENCHMARK_CAPTURE(ParseStatus, fin, "FIN PDOUT\n", pellix::kFinished)->Name("ParseFin");
BENCHMARK_CAPTURE(ParseUnexpected, ack, "ACK PDOUT\n")->Name("ParseAckOfNoCommand");
BENCHMARK_CAPTURE(ParseUnexpected, fin, "FIN PDOUT\n")->Name("ParseFinOfNoCommand");

void ParseParameter(benchmark::State& state) {
    ParserOfLink link("PARAM[96][3]=[32]\n");
    pellix::Command* const command = link.Commands().SendQuery("PARAM[96][3]");
    link.Run(state);
    Require(link.Model().GetParameter(96, 3) == Bytes{0x32}, "the parameter was not stored");
    Require(command->GetState() == pellix::kFinished, "the query was not finished");
    link.Commands().RemovePending(command);
}
BENCHMARK(ParseParameter);

// The parts of a call besides the request to the master, with real links.

/// Masters with an HVA each, serial numbers 1, 2 and so on, and their links.
class LinkedMasters {
public:
    explicit LinkedMasters(std::int64_t count) {
        for (std::int64_t number = 1; number <= count; ++number) {
            const std::string serial = std::to_string(number);
            support::FakeMaster& master = masters.emplace_back();
            master.SetValue("PARAM[21][0]", pellix::FormatByteList({serial.begin(), serial.end()}));
            Require(registry.AddDevice(master.Path()) == 0, "failed to create a link");
        }
    }
    LinkedMasters(const LinkedMasters&) = delete;
    LinkedMasters& operator=(const LinkedMasters&) = delete;
    ~LinkedMasters() {
        for (support::FakeMaster& master : masters) {
            master.Unplug();  // ends the link's read
        }
        for (const support::FakeMaster& master : masters) {
            registry.RemoveDevice(master.Path());
        }
    }

    std::int64_t Count() const { return std::ssize(masters); }
    LinkRegistry& Registry() { return registry; }

private:
    LinkRegistry registry;
    std::list<support::FakeMaster> masters;
};

/// Reuses the links of the benchmark before, if their number is the same: creating them takes
/// longer than measuring, and each benchmark is called several times.
LinkRegistry& LinksOf(std::int64_t count) {
    static std::unique_ptr<LinkedMasters> cell;
    if (!cell || cell->Count() != count) {
        cell.reset();
        cell = std::make_unique<LinkedMasters>(count);
    }
    return cell->Registry();
}

std::string DeviceString(std::int64_t number) {
    return "HVA SN:" + std::to_string(number);
}

/// @param number of the gripper to find; 0 for an unknown one
void GetLink(benchmark::State& state, std::int64_t number) {
    LinkRegistry& registry = LinksOf(state.range(0));
    const std::string wanted = DeviceString(number);
    Require((registry.GetLink(wanted) != nullptr) == (number > 0), "a link is wrong or missing");
    for ([[maybe_unused]] const auto _ : state) {
        benchmark::DoNotOptimize(registry.GetLink(wanted));
    }
}

void GetLastLink(benchmark::State& state) {
    GetLink(state, state.range(0));
}
BENCHMARK(GetLastLink)->Arg(1)->Arg(8)->Arg(32);

void GetNoLink(benchmark::State& state) {
    GetLink(state, 0);
}
BENCHMARK(GetNoLink)->Arg(1)->Arg(8)->Arg(32);

/// Lower bound: complete device strings in one vector under one lock.
void FindLastByHand(benchmark::State& state) {
    std::timed_mutex mutex;
    std::vector<std::string> deviceStrings;
    for (std::int64_t number = 1; number <= state.range(0); ++number) {
        deviceStrings.push_back(DeviceString(number));
    }
    const std::string wanted = deviceStrings.back();
    for ([[maybe_unused]] const auto _ : state) {
        const std::lock_guard<std::timed_mutex> lock(mutex);
        benchmark::DoNotOptimize(std::ranges::find(deviceStrings, wanted));
    }
}
BENCHMARK(FindLastByHand)->Arg(1)->Arg(8)->Arg(32);

void GetGrippers(benchmark::State& state) {
    LinkRegistry& registry = LinksOf(state.range(0));
    for ([[maybe_unused]] const auto _ : state) {
        benchmark::DoNotOptimize(registry.GetGrippers());
    }
    Require(std::ssize(registry.GetGrippers()) == state.range(0), "grippers are missing");
}
BENCHMARK(GetGrippers)->Arg(1)->Arg(8)->Arg(32);

void GetPos(benchmark::State& state) {
    const LinkInUse link = LinksOf(1).GetLink(DeviceString(1));
    link->GetDevice().SetPDIN({0x09, 0xc4, 0x00, 0x03});
    for ([[maybe_unused]] const auto _ : state) {
        benchmark::DoNotOptimize(pellix::CorvaneGripper::GetPos(*link));
    }
    Require(pellix::CorvaneGripper::GetPos(*link) == 25.0, "a wrong position");
}
BENCHMARK(GetPos);

/// Runs on a second thread: in a process with only one, unlike the daemon, the C library takes
/// locks without atomic operations.
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
        benchmark::ConsoleReporter report(benchmark::ConsoleReporter::OO_None);
        report.SetOutputStream(&std::cerr);  // standard output is the log
        // Static, so that it outlives the links, which log their end.
        static const Redirection output(::open("/dev/null", O_WRONLY | O_CLOEXEC));
        const std::jthread second(SleepUntilStopped);
        benchmark::RunSpecifiedBenchmarks(&report);
    } catch (const std::exception& failure) {
        std::cerr << "bench-micro: " << failure.what() << '\n';
        return 1;
    }
    return 0;
}
