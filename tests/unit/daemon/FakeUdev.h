#pragma once

#include <string>

/// Replaces libudev by defining its functions. They report only the masters that the test plugs in;
/// at the start no master is attached.
namespace fake_udev {

/// Sends the event `action` for the tty node of a master to the process's only udev monitor.
/// @return whether the monitor thread has handled it in time
bool Send(const std::string& action, const std::string& node);

}  // namespace fake_udev
