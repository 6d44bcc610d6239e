#pragma once

#include <umockdev.h>

#include <cstddef>
#include <memory>
#include <optional>
#include <string>

#include "common/Udev.h"

/// The devices that udev lists in this process, which runs with umockdev's preload library.
/// Adding a device also sends an "add" event to the monitors.
class UdevTestbed {
public:
    /// USB identity of a master; attributes without a value are missing.
    struct Usb {
        std::optional<std::string> vendor = "0483";
        std::optional<std::string> product = "5740";
        std::optional<std::string> manufacturer = "Zentrova";
        std::optional<std::string> name = "PELLIX";
        std::optional<std::string> serial = "PX1000";
    };

    UdevTestbed();
    UdevTestbed(const UdevTestbed&) = delete;
    UdevTestbed& operator=(const UdevTestbed&) = delete;

    /// Adds the tty ttyACM<number> of a USB device.
    /// @return its path in sysfs
    std::string AddMaster(std::size_t number, const Usb& usb);

    /// Adds a device without a parent.
    /// @return its path in sysfs
    std::string Add(const std::string& subsystem, const std::string& name);

    /// Makes /dev/ttyACM<number> open the tty at `path`.
    void Connect(std::size_t number, const std::string& path) const;

    /// Removes the node again.
    void Disconnect(std::size_t number) const;

    void SendEvent(const std::string& sysPath, const std::string& action);

    /// @return whether a udev monitor of this process receives events
    bool IsMonitored() const;

    UdevDevice Find(const std::string& sysPath) const;

private:
    struct Unref {
        void operator()(UMockdevTestbed* testbed) const { g_object_unref(testbed); }
    };

    std::string AddDevice(const std::string& subsystem, const std::string& name,
                          const char* parent) const;

    std::unique_ptr<UMockdevTestbed, Unref> testbed;
    std::string root;
    UdevContext context;
};
