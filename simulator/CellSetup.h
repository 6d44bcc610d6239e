#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "simulator/Cell.h"
#include "simulator/CommandReader.h"
#include "simulator/FileDescriptor.h"
#include "simulator/Options.h"
#include "simulator/RecordingWriter.h"
#include "simulator/ReplayingMaster.h"

namespace simulator {

/// A recorded master in a cell.
struct Replay {
    std::size_t number = 0;
    const ReplayingMaster* master = nullptr;  ///< lives in the cell, on its thread
    CommandSource commands;                   ///< its own
    FileDescriptor commandPipe;               ///< of which `commands` reads
};

/// The stations that a command line asks for, all unplugged.
struct CellSetup {
    std::vector<Station> stations;
    std::vector<Replay> replays;
};

/// @param writer gets all that goes to the masters and comes from them; null for none
/// @param tell takes messages of replays; any thread
/// @throws std::runtime_error for a recording that cannot be read
CellSetup SetUpCell(const Options& options, RecordingWriter* writer,
                    const std::function<void(const std::string& text)>& tell);

}  // namespace simulator
