#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "bench/FastMasters.h"

namespace bench {

/// The command line of bench-cell.
struct CellOptions {
    std::size_t masters = 1;
    StreamRate rate = 100;
    bool unplugged = false;  ///< no master is plugged in at the start
    std::string finFile;     ///< where FastMaster leaves the time of FIN; empty for nowhere
    std::vector<std::string> command;
    bool help = false;
};

extern const std::string_view kCellHelp;

/// @param arguments the command line without the program's name
/// @throws simulator::UsageError
CellOptions ParseCellOptions(std::span<const std::string> arguments);

/// Reads a number of lines a second, or "full".
/// @throws simulator::UsageError
StreamRate ParseStreamRate(std::string_view text);

}  // namespace bench
