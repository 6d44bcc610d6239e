#pragma once

#include <optional>
#include <set>
#include <span>
#include <string>
#include <vector>

#include "simulator/Pty.h"
#include "simulator/ReplayingMaster.h"
#include "simulator/SimulatedMaster.h"

namespace simulator {

struct GripperOption {
    const GripperModel* model = nullptr;
    std::string product;
    std::string serial;
    std::string id;
};

/// The command line of pellix-sim.
struct Options {
    std::vector<GripperOption> grippers;
    std::set<std::size_t> unplugged;
    MasterSettings master;  ///< of all masters, apart from the id
    PtyPort::Start ttyStart = PtyPort::Start::Raw;
    std::optional<double> speed;  ///< mm/s; by default that of the model
    std::optional<std::string> scriptPath;
    std::optional<std::string> recordPath;
    std::vector<std::string> replayPaths;
    ReplayingMaster::Timing replayTiming = ReplayingMaster::Timing::AsRecorded;
    bool usb = false;
    std::vector<std::string> command;  ///< with `usb` it may be empty
    bool help = false;
};

/// The command line of "pellix-sim tap".
struct TapOptions {
    std::vector<std::string> ttyPaths;
    std::string recordPath;
    std::vector<std::string> command;  ///< may be empty
    bool help = false;
};

std::string HelpText();

/// @param arguments the command line without the program's name
/// @throws UsageError
Options ParseOptions(std::span<const std::string> arguments);

/// @param arguments the command line after the word "tap"
/// @throws UsageError
TapOptions ParseTapOptions(std::span<const std::string> arguments);

}  // namespace simulator
