#include "tests/unit/daemon/FakeUdev.h"

#include <libudev.h>

#include <condition_variable>
#include <map>
#include <mutex>
#include <optional>

#include "tests/support/WaitFor.h"

// Types that libudev's header only declares.

struct udev {};

struct udev_enumerate {};

struct udev_device {
    std::string action;
    std::string node;
};

struct udev_monitor {
    std::optional<udev_device> event;  // waits for the monitor thread
    bool busy = false;                 // the monitor thread is handling an event
    std::mutex mutex;                  // guards both
    std::condition_variable changed;
};

namespace {

udev context;
udev_enumerate scan;

/// Never destroyed, because the monitor thread waits on it until the process ends.
udev_monitor& Monitor() {
    static auto* const monitor = new udev_monitor;
    return *monitor;
}

}  // namespace

namespace fake_udev {

bool Send(const std::string& action, const std::string& node) {
    udev_monitor& monitor = Monitor();
    std::unique_lock<std::mutex> lock(monitor.mutex);
    monitor.event = {action, node};
    monitor.busy = true;
    monitor.changed.notify_all();
    return monitor.changed.wait_for(lock, support::kPatience, [&] { return !monitor.busy; });
}

}  // namespace fake_udev

extern "C" {

udev* udev_new() {
    return &context;
}

udev* udev_unref(udev* /*context*/) {
    return nullptr;
}

udev_enumerate* udev_enumerate_new(udev* /*context*/) {
    return &scan;
}

int udev_enumerate_add_match_subsystem(udev_enumerate* /*scan*/, const char* /*subsystem*/) {
    return 0;
}

int udev_enumerate_scan_devices(udev_enumerate* /*scan*/) {
    return 0;
}

udev_list_entry* udev_enumerate_get_list_entry(udev_enumerate* /*scan*/) {
    return nullptr;
}

udev_list_entry* udev_list_entry_get_next(udev_list_entry* /*entry*/) {
    return nullptr;
}

const char* udev_list_entry_get_name(udev_list_entry* /*entry*/) {
    return nullptr;
}

udev_enumerate* udev_enumerate_unref(udev_enumerate* /*scan*/) {
    return nullptr;
}

udev_device* udev_device_new_from_syspath(udev* /*context*/, const char* /*path*/) {
    return nullptr;
}

udev_device* udev_device_unref(udev_device* device) {
    delete device;
    return nullptr;
}

const char* udev_device_get_action(udev_device* device) {
    return device->action.c_str();
}

const char* udev_device_get_devnode(udev_device* device) {
    return device->node.c_str();
}

const char* udev_device_get_subsystem(udev_device* /*device*/) {
    return "tty";
}

/// The tty is its own USB parent here. Callers do not unreference a parent.
udev_device* udev_device_get_parent_with_subsystem_devtype(udev_device* device,
                                                           const char* /*subsystem*/,
                                                           const char* /*devtype*/) {
    return device;
}

const char* udev_device_get_sysattr_value(udev_device* /*device*/, const char* sysattr) {
    static const std::map<std::string, std::string> attributes{
        {"idVendor", "0483"},  {"idProduct", "5740"}, {"manufacturer", "Zentrova"},
        {"product", "PELLIX"}, {"serial", "PX1000"},
    };
    const auto found = attributes.find(sysattr);
    return found == attributes.end() ? nullptr : found->second.c_str();
}

udev_monitor* udev_monitor_new_from_netlink(udev* /*context*/, const char* /*name*/) {
    return &Monitor();
}

int udev_monitor_filter_add_match_subsystem_devtype(udev_monitor* /*monitor*/,
                                                    const char* /*subsystem*/,
                                                    const char* /*devtype*/) {
    return 0;
}

int udev_monitor_enable_receiving(udev_monitor* /*monitor*/) {
    return 0;
}

int udev_monitor_get_fd(udev_monitor* /*monitor*/) {
    return -1;
}

udev_device* udev_monitor_receive_device(udev_monitor* monitor) {
    std::unique_lock<std::mutex> lock(monitor->mutex);
    if (!monitor->event) {
        monitor->busy = false;
        monitor->changed.notify_all();
    }
    monitor->changed.wait(lock, [monitor] { return monitor->event.has_value(); });
    auto* const device = new udev_device(*monitor->event);
    monitor->event.reset();
    return device;
}

udev_monitor* udev_monitor_unref(udev_monitor* /*monitor*/) {
    return nullptr;
}

}  // extern "C"
