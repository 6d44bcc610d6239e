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
    std::vector<std::string> command;
    bool help = false;
};

extern const std::string_view kHelpText;

/// @param arguments the command line without the program's name
/// @throws UsageError
Options ParseOptions(std::span<const std::string> arguments);

}  // namespace simulator
