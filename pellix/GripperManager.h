#pragma once

#include <libudev.h>

#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "common/Udev.h"
#include "pellix/LinkRegistry.h"

/// Finds PELLIX masters through udev, at start and by hot-plug, and keeps one link for each.
/// There is one for the process.
class GripperManager {
public:
    /// Adds the masters that are attached, which may take seconds for each that does not answer,
    /// and starts the monitor thread. Ends the process with status 1 when there is no udev.
    GripperManager();
    GripperManager(const GripperManager&) = delete;
    GripperManager& operator=(const GripperManager&) = delete;

    /// Destroys links as LinkRegistry::Close() says. The monitor thread is neither stopped nor
    /// joined: the process ends right after. It only uses what it shares with the manager.
    ~GripperManager();

    /// As in LinkRegistry; any thread.
    LinkInUse GetLink(const std::string& deviceString) { return registry->GetLink(deviceString); }
    std::vector<std::string> GetGrippers() { return registry->GetGrippers(); }

    /// Whether `device` is the tty of a PELLIX master; logged when it is. Null is none, and so is
    /// a device without a node.
    static bool IsCompatibleDevice(udev_device* device);

    /// Logs node, subsystem and USB identity of `device`; what is missing prints as nothing.
    static void PrintDeviceInfo(udev_device* device);

private:
    void EnumerateDevices();
    void StartMonitor();
    static void MonitorLoop(LinkRegistry& registry);

    const std::shared_ptr<LinkRegistry> registry = std::make_shared<LinkRegistry>();
    UdevContext udev;
    std::thread* monitorThread = nullptr;  // on purpose never joined, detached or destroyed
};
