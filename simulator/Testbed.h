#pragma once

#include <atomic>
#include <cstddef>
#include <filesystem>
#include <string>

#include "simulator/UeventSender.h"

namespace simulator {

/// The world that COMMAND sees in place of the machine's own devices: a folder with a sysfs tree
/// and a dev folder, which umockdev's preload library puts before the real ones.
///
/// Master number 2 is the tty "ttyACM2" below a USB device of its own. The folder lasts as long
/// as the object. Any thread may work on a master, but no two on the same.
class Testbed {
public:
    Testbed();
    ~Testbed();
    Testbed(const Testbed&) = delete;
    Testbed& operator=(const Testbed&) = delete;

    const std::filesystem::path& Folder() const { return folder; }

    /// Puts the tty behind /dev/ttyACM<number> and its devices into sysfs. Sends nothing.
    void Add(std::size_t number, const std::string& ttyPath);

    /// Takes away the node alone. The number of a pty may come back soon, so this goes before
    /// hanging up.
    void RemoveNode(std::size_t number) const;

    /// Takes the devices out of sysfs. Sends nothing.
    void RemoveDevices(std::size_t number) const;

    /// Add() with its "add" event.
    void Plug(std::size_t number, const std::string& ttyPath);

    /// RemoveDevices() with its "remove" event, 20 ms late: udevd's events lag behind a hang-up.
    void Unplug(std::size_t number);

    /// Sends a udev event for the tty; it need not exist.
    void SendEvent(std::size_t number, const std::string& action);

private:
    void AddSubsystem(const std::filesystem::path& device, const std::string& subsystem,
                      const std::string& uevent) const;

    std::filesystem::path folder;
    UeventSender sender;
    std::atomic<unsigned> eventCount = 0;
};

}  // namespace simulator
