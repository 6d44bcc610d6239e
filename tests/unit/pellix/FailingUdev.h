#pragma once

#include <atomic>

/// Selects the libudev functions that fail. The executable is linked with --wrap for each of them.
namespace failing_udev {

inline std::atomic<bool> noContext = false;     ///< udev_new()
inline std::atomic<bool> noMonitor = false;     ///< udev_monitor_new_from_netlink()
inline std::atomic<bool> noDevice = false;      ///< udev_device_new_from_syspath()
inline std::atomic<bool> noAction = false;      ///< udev_device_get_action()
inline std::atomic<bool> noDeviceNode = false;  ///< udev_device_get_devnode()
inline std::atomic<bool> throwingAction =
    false;  ///< udev_device_get_action() throws std::bad_alloc

}  // namespace failing_udev
