// One pass of the input parser over what one read brings.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "bench/micro/Require.h"
#include "pellix/CommandHandler.h"
#include "pellix/DeviceHandler.h"

namespace {

using Bytes = std::vector<std::uint8_t>;

const Bytes kPdin = {0x09, 0xc4, 0x00, 0x03};
constexpr std::string_view kPdinLine = "@PDIN=[9,c4,0,3]\n";
constexpr std::size_t kReadSize = 4096;  // the most that the daemon reads at once
constexpr double kTimeout = 1.0;         // seconds

/// Every read brings the same text.
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

/// Counts what the passes so far have parsed.
void Count(benchmark::State& state, std::string_view text) {
    const auto lines = std::count(text.begin(), text.end(), '\n');
    state.SetItemsProcessed(state.iterations() * lines);
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
}

/// The parser of a link, without tty and threads.
class ParserOfLink {
public:
    /// @param read what every pass parses
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

/// @param reached the state to which `text` brings a command that is under way
void ParseStatus(benchmark::State& state, std::string_view text, pellix::CommandState reached) {
    ParserOfLink link(text);
    pellix::Command* const command = link.Commands().SendAssignment("PDOUT", "[3,1]");
    link.Run(state);
    Require(command->GetState() == reached, "the command's state was not set");
    link.Commands().RemovePending(command);
}

/// The least that PDIN lines can cost: cut, and decoded into four bytes.
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

void ParsePdinChunk(benchmark::State& state) {
    ParsePdin(state, PdinLines(kReadSize / kPdinLine.size()));
}
BENCHMARK(ParsePdinChunk);

void DecodePdinChunkByHand(benchmark::State& state) {
    DecodeByHand(state, PdinLines(kReadSize / kPdinLine.size()));
}
BENCHMARK(DecodePdinChunkByHand);

void ParsePdinLine(benchmark::State& state) {
    ParsePdin(state, kPdinLine);
}
BENCHMARK(ParsePdinLine);

void DecodePdinLineByHand(benchmark::State& state) {
    DecodeByHand(state, kPdinLine);
}
BENCHMARK(DecodePdinLineByHand);

void ParseAck(benchmark::State& state) {
    ParseStatus(state, "ACK PDOUT\n", pellix::kAcknowledged);
}
BENCHMARK(ParseAck);

void ParseFin(benchmark::State& state) {
    ParseStatus(state, "FIN PDOUT\n", pellix::kFinished);
}
BENCHMARK(ParseFin);

void ParseAckOfNoCommand(benchmark::State& state) {
    ParserOfLink("ACK PDOUT\n").Run(state);
}
BENCHMARK(ParseAckOfNoCommand);

void ParseFinOfNoCommand(benchmark::State& state) {
    ParserOfLink("FIN PDOUT\n").Run(state);
}
BENCHMARK(ParseFinOfNoCommand);

void ParseParameter(benchmark::State& state) {
    ParserOfLink link("PARAM[96][3]=[32]\n");
    pellix::Command* const command = link.Commands().SendQuery("PARAM[96][3]");
    link.Run(state);
    Require(link.Model().GetParameter(96, 3) == Bytes{0x32}, "the parameter was not stored");
    Require(command->GetState() == pellix::kFinished, "the query was not finished");
    link.Commands().RemovePending(command);
}
BENCHMARK(ParseParameter);

}  // namespace
