#include "pellix/GripperManager.h"

#include <fcntl.h>

#include <chrono>
#include <cstdlib>
#include <string_view>

#include "Revision.h"
#include "common/LogLine.h"
#include "common/UsbIdentity.h"
#include "pellix/CatchAll.h"

using pellix::CatchAll;

namespace {

// Limits the log lines of a monitor that keeps failing.
constexpr std::chrono::milliseconds kNoDevicePause{10};

/// libudev returns null for a missing property.
std::string_view TextOrEmpty(const char* text) {
    return text == nullptr ? "" : text;
}

std::string_view Attribute(udev_device* device, const char* name) {
    return TextOrEmpty(udev_device_get_sysattr_value(device, name));
}

/// @return the USB device that `device` belongs to, owned by `device`; null if there is none
udev_device* UsbParent(udev_device* device) {
    return udev_device_get_parent_with_subsystem_devtype(device, "usb", "usb_device");
}

std::string DeviceNode(udev_device* device) {
    return std::string(TextOrEmpty(udev_device_get_devnode(device)));
}

/// @return a monitor of udev's tty events, in blocking mode; null if it cannot be created
UdevMonitor OpenMonitor(udev* context) {
    UdevMonitor monitor(context == nullptr ? nullptr
                                           : udev_monitor_new_from_netlink(context, "udev"));
    if (monitor == nullptr ||
        udev_monitor_filter_add_match_subsystem_devtype(monitor.get(), "tty", nullptr) < 0 ||
        udev_monitor_enable_receiving(monitor.get()) < 0) {
        return nullptr;
    }
    // On purpose: blocking, so that receiving waits for the next event without polling.
    const int fd = udev_monitor_get_fd(monitor.get());
    ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) & ~O_NONBLOCK);
    return monitor;
}

void LogNoMonitor() {
    LogLine() << "Can't create udev monitor: masters plugged in from now on are not seen";
}

void HandleAdd(LinkRegistry& registry, udev_device* device) {
    GripperManager::PrintDeviceInfo(device);
    if (!GripperManager::IsCompatibleDevice(device)) {
        return;
    }
    if (registry.AddDevice(DeviceNode(device)) == 0) {
        LogLine() << "Device added";
    } else {
        LogLine() << "Failed to add device";
    }
}

void HandleEvent(LinkRegistry& registry, udev_device* device) {
    const std::string_view action = TextOrEmpty(udev_device_get_action(device));
    LogLine() << "Got Device with action " << action;
    if (action == "add") {
        HandleAdd(registry, device);
    } else if (action == "remove") {
        registry.RemoveDevice(DeviceNode(device));
    } else {
        LogLine() << "Unknown udev action: " << action;
    }
}

}  // namespace

GripperManager::GripperManager() {
    LogLine() << "Initializing GripperManager";
    LogLine() << "Library revision: " << TAVRIK_REVISION;
    LogLine() << "Library build date: " << __DATE__ << " at " << __TIME__;
    udev.reset(udev_new());
    if (udev == nullptr) {
        LogLine() << "Can't create udev";
        std::exit(1);  // NOLINT(concurrency-mt-unsafe): the only thread yet
    }
    EnumerateDevices();
    StartMonitor();
    LogLine() << "GripperManager started";
}

GripperManager::~GripperManager() {
    const auto lock = registry->Close();
    udev.reset();
    LogLine() << "GripperManager stopped";
}

void GripperManager::EnumerateDevices() {
    const UdevEnumerate scan(udev_enumerate_new(udev.get()));
    udev_enumerate_add_match_subsystem(scan.get(), "tty");
    udev_enumerate_scan_devices(scan.get());
    for (udev_list_entry* entry = udev_enumerate_get_list_entry(scan.get()); entry != nullptr;
         entry = udev_list_entry_get_next(entry)) {
        // Null if the device has been unplugged since the scan.
        const UdevDevice device(
            udev_device_new_from_syspath(udev.get(), udev_list_entry_get_name(entry)));
        PrintDeviceInfo(device.get());
        if (!IsCompatibleDevice(device.get())) {
            LogLine() << "Not a valid device";
            continue;
        }
        LogLine() << "PELLIX detected";
        if (registry->AddDevice(DeviceNode(device.get())) != 0) {
            LogLine() << "Failed to add device";
        }
    }
}

// On purpose: the thread is never joined and its object never freed, because nothing can end the
// thread's wait for an event. tests/support/lsan.supp lists the leak.
void GripperManager::StartMonitor() {
    if (CatchAll([this] {
            monitorThread = new std::thread([shared = registry] { MonitorLoop(*shared); });
        })) {
        LogNoMonitor();
    }
}

/// Has its own libudev context, because a context must not be shared between threads.
void GripperManager::MonitorLoop(LinkRegistry& registry) {
    const UdevContext context(udev_new());
    const UdevMonitor monitor = OpenMonitor(context.get());
    if (monitor == nullptr) {
        LogNoMonitor();
        return;
    }
    for (;;) {
        // No flush is needed before the wait: log lines are not buffered.
        const UdevDevice device(udev_monitor_receive_device(monitor.get()));
        if (device == nullptr) {
            LogLine() << "No device from receive_device(). An error occured.";
            std::this_thread::sleep_for(kNoDevicePause);
            continue;
        }
        if (const auto failure = CatchAll([&] { HandleEvent(registry, device.get()); })) {
            LogLine() << "Exception in monitor thread: " << *failure;
        }
    }
}

bool GripperManager::IsCompatibleDevice(udev_device* device) {
    if (device == nullptr || TextOrEmpty(udev_device_get_subsystem(device)) != "tty") {
        return false;
    }
    udev_device* const parent = UsbParent(device);
    if (parent == nullptr || Attribute(parent, "idVendor") != kUsbVendorId ||
        Attribute(parent, "idProduct") != kUsbProductId ||
        Attribute(parent, "manufacturer") != kUsbManufacturer ||
        !pellix::Pellix::IsMasterProduct(Attribute(parent, "product")) ||
        udev_device_get_devnode(device) == nullptr) {
        return false;
    }
    LogLine() << "Found PELLIX compatible device";
    return true;
}

void GripperManager::PrintDeviceInfo(udev_device* device) {
    if (device == nullptr) {
        return;
    }
    LogLine() << "   Node: " << TextOrEmpty(udev_device_get_devnode(device));
    LogLine() << "   Subsystem: " << TextOrEmpty(udev_device_get_subsystem(device));
    udev_device* const parent = UsbParent(device);
    if (parent == nullptr) {
        LogLine() << "(No parent dev)";
        return;
    }
    const std::string_view vendor = Attribute(parent, "idVendor");
    const std::string_view product = Attribute(parent, "idProduct");
    LogLine() << "  VID/PID: " << vendor << " " << product;
    LogLine() << "  Manufacturer: " << Attribute(parent, "manufacturer");
    LogLine() << "  Product: " << Attribute(parent, "product");
    LogLine() << "  SN: " << Attribute(parent, "serial");
}
