#pragma once

#include <libudev.h>

#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "common/Udev.h"
#include "pellix/LinkRegistry.h"

/// Finds PELLIX masters through udev, at start and by hot-plug, and keeps one link for each.
/// The process has one GripperManager.
class GripperManager {
public:
    /// Adds the attached masters, which takes seconds for each that does not answer, and starts
    /// the monitor thread. Ends the process with status 1 if udev is not available.
    GripperManager();
    GripperManager(const GripperManager&) = delete;
    GripperManager& operator=(const GripperManager&) = delete;

    /// Destroys links as LinkRegistry::Close() describes. Does not stop or join the monitor thread,
    /// because the process ends right after. That thread uses only the registry, which it shares.
    ~GripperManager();

    /// See LinkRegistry. Any thread.
    LinkInUse GetLink(const std::string& deviceString) { return registry->GetLink(deviceString); }
    std::vector<std::string> GetGrippers() { return registry->GetGrippers(); }

    /// @param device may be null
    /// @return whether `device` is the tty of a PELLIX master and has a device node (then logged)
    static bool IsCompatibleDevice(udev_device* device);

    /// Logs node, subsystem and USB identity of `device`; missing properties as empty texts.
    /// @param device may be null, which logs nothing
    static void PrintDeviceInfo(udev_device* device);

private:
    void EnumerateDevices();
    void StartMonitor();
    static void MonitorLoop(LinkRegistry& registry);

    const std::shared_ptr<LinkRegistry> registry = std::make_shared<LinkRegistry>();
    UdevContext udev;
    std::thread* monitorThread = nullptr;  // never joined or destroyed: see StartMonitor()
};
