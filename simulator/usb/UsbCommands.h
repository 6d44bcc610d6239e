#pragma once

#include <functional>

#include "simulator/Cell.h"
#include "simulator/TextTools.h"

/// The commands for faults of USB. Each parses the words after the master's number and returns
/// what to do on the cell's thread.
namespace simulator::usb_commands {

using Work = std::function<void(Station&)>;

/// Delays the answers to control requests, refuses or ignores these requests.
Work Control(CommandWords& words);

/// Halts an endpoint until the host clears it.
Work Halt(CommandWords& words);

/// Limits the length of transfers to the host.
Work Cut(CommandWords& words);

/// Makes a number of transfers fail.
Work Error(CommandWords& words);

// These take effect when the master is plugged in the next time.

/// Replaces a text of the device, or removes it.
Work Text(CommandWords& words);

/// Cuts the descriptor of the configuration.
Work Descriptor(CommandWords& words);

/// Plugs the master into another port.
Work Move(CommandWords& words);

}  // namespace simulator::usb_commands
