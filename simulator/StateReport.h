#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "simulator/Port.h"
#include "simulator/SimulatedMaster.h"
#include "simulator/usb/UsbFaults.h"

namespace simulator {

/// The state of a master and its gripper, as a JSON object on one line.
/// @param port null while unplugged
/// @param usb null without --usb
std::string StateReport(std::size_t number, const SimulatedMaster& master, const Port* port,
                        const UsbFaults* usb);

/// The most important of it in words, in lines of up to 66 characters unless a text from outside is
/// longer.
std::vector<std::string> StateLines(std::size_t number, const SimulatedMaster& master,
                                    const Port* port);

}  // namespace simulator
