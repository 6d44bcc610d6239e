#pragma once

#include <string>

/// Stands in for libudev, whose functions it defines: in this program they tell of the masters that
/// the test plugs in and of nothing else. No master is attached at the start.
namespace fake_udev {

/// Sends the event `action` for the tty node of a master to the one udev monitor of the process.
/// @return whether the monitor's thread has handled it in time
bool Send(const std::string& action, const std::string& node);

}  // namespace fake_udev
