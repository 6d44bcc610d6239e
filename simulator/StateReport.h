#pragma once

#include <cstddef>
#include <string>

#include "simulator/PtyPort.h"
#include "simulator/SimulatedMaster.h"

namespace simulator {

/// All about one master and its gripper, as a JSON object on one line.
/// @param port null while unplugged
std::string StateReport(std::size_t number, const SimulatedMaster& master, const PtyPort* port);

}  // namespace simulator
