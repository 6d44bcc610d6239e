#pragma once

#include <libudev.h>

#include <memory>

/// Owners of libudev objects. An object may only be used by the thread that created it.
template <auto Unref>
struct UdevUnref {
    template <typename Object>
    void operator()(Object* object) const {
        Unref(object);
    }
};

using UdevContext = std::unique_ptr<udev, UdevUnref<udev_unref>>;
using UdevDevice = std::unique_ptr<udev_device, UdevUnref<udev_device_unref>>;
using UdevEnumerate = std::unique_ptr<udev_enumerate, UdevUnref<udev_enumerate_unref>>;
using UdevMonitor = std::unique_ptr<udev_monitor, UdevUnref<udev_monitor_unref>>;
