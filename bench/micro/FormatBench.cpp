// Texts that are sent to a master.

#include <benchmark/benchmark.h>

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "bench/micro/Require.h"
#include "pellix/Command.h"
#include "pellix/Protocol.h"

namespace {

/// Of one digit and of two.
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

/// The least: digits from a table into a buffer, and the text that has to be returned.
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
    end[-1] = ']';  // in the place of the last comma
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

}  // namespace
