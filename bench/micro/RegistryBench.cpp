// What a call does before and after the gripper's own work, with real links.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "bench/micro/Require.h"
#include "pellix/CorvaneGripper.h"
#include "pellix/LinkRegistry.h"
#include "pellix/Protocol.h"
#include "tests/support/FakeMaster.h"

namespace {

/// Masters with an HVA each, serial numbers 1, 2 and so on, and their links.
class LinkedMasters {
public:
    explicit LinkedMasters(std::int64_t count) {
        for (std::int64_t number = 1; number <= count; ++number) {
            const std::string serial = std::to_string(number);
            support::FakeMaster& master = masters.emplace_back();
            master.SetValue("PARAM[21][0]", pellix::FormatByteList({serial.begin(), serial.end()}));
            Require(registry.AddDevice(master.Path()) == 0, "a link was not made");
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

/// The links of the benchmark before, if there are as many: making them takes longer than
/// measuring, and each benchmark is called several times.
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

/// @param number of the link that is looked for
void GetLink(benchmark::State& state, std::int64_t number) {
    LinkRegistry& registry = LinksOf(state.range(0));
    const std::string wanted = DeviceString(number);
    Require((registry.GetLink(wanted) != nullptr) == (number > 0), "a wrong link, or none");
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

/// The least: the device strings are ready, in one place and under one lock.
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

}  // namespace
