#pragma once

#include <chrono>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "simulator/GripperModel.h"
#include "simulator/PtyPort.h"
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
    MasterSettings master;  ///< of all masters; the id is each gripper's own
    PtyPort::Start ttyStart = PtyPort::Start::Raw;
    std::optional<double> speed;  ///< mm/s; nothing for each model's own
    std::optional<std::string> scriptPath;
    std::optional<std::string> recordPath;
    std::vector<std::string> replayPaths;
    ReplayingMaster::Answers replayAnswers = ReplayingMaster::Answers::AsRecorded;
    std::vector<std::string> command;
    bool help = false;
};

/// The command line of "pellix-sim tap".
struct TapOptions {
    std::vector<std::string> ttyPaths;
    std::string recordPath;
    std::vector<std::string> command;  ///< empty for none
    bool help = false;
};

extern const std::string_view kHelpText;

/// @param arguments the command line without the program's name
/// @throws UsageError
Options ParseOptions(std::span<const std::string> arguments);

/// @param arguments the command line behind the word "tap"
/// @throws UsageError
TapOptions ParseTapOptions(std::span<const std::string> arguments);

}  // namespace simulator
