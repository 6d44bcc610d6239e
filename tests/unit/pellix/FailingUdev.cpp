#include "tests/unit/pellix/FailingUdev.h"

#include <libudev.h>

#include <new>

using namespace failing_udev;

// The linker's names for the wrapped functions.
// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" {
udev* __real_udev_new();
udev* __wrap_udev_new();
udev_monitor* __real_udev_monitor_new_from_netlink(udev* context, const char* name);
udev_monitor* __wrap_udev_monitor_new_from_netlink(udev* context, const char* name);
udev_device* __real_udev_device_new_from_syspath(udev* context, const char* path);
udev_device* __wrap_udev_device_new_from_syspath(udev* context, const char* path);
const char* __real_udev_device_get_action(udev_device* device);
const char* __wrap_udev_device_get_action(udev_device* device);
const char* __real_udev_device_get_devnode(udev_device* device);
const char* __wrap_udev_device_get_devnode(udev_device* device);

udev* __wrap_udev_new() {
    return noContext ? nullptr : __real_udev_new();
}

udev_monitor* __wrap_udev_monitor_new_from_netlink(udev* context, const char* name) {
    return noMonitor ? nullptr : __real_udev_monitor_new_from_netlink(context, name);
}

udev_device* __wrap_udev_device_new_from_syspath(udev* context, const char* path) {
    return noDevice ? nullptr : __real_udev_device_new_from_syspath(context, path);
}

const char* __wrap_udev_device_get_action(udev_device* device) {
    if (throwingAction) {
        throw std::bad_alloc();
    }
    return noAction ? nullptr : __real_udev_device_get_action(device);
}

const char* __wrap_udev_device_get_devnode(udev_device* device) {
    return noDeviceNode ? nullptr : __real_udev_device_get_devnode(device);
}
}
// NOLINTEND(bugprone-reserved-identifier)
