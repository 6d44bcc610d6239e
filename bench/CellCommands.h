#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "bench/FastMasters.h"
#include "simulator/Testbed.h"

namespace bench {

/// Carries out the commands that bench-cell gets while COMMAND runs.
class CellCommands {
public:
    /// Uses both for as long as it lives.
    CellCommands(FastMasters& ownMasters, simulator::Testbed& ownTestbed);

    /// @return the answer to a line: "ok", "ok NUMBER" or "error: TEXT"
    std::string Execute(std::string_view line);

    /// @return when the udev event was about to be sent
    /// @throws std::exception when there is no such master, or it is plugged in
    std::chrono::nanoseconds Plug(std::size_t number);

private:
    std::chrono::nanoseconds Unplug(std::size_t number);
    std::chrono::nanoseconds SendEvent(std::size_t number, const std::string& action);
    std::optional<std::uint64_t> Answer(std::string_view line);

    FastMasters& masters;
    simulator::Testbed& testbed;
};

}  // namespace bench
