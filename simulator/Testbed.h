#pragma once

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <filesystem>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace simulator {

/// Sends udev events for ttys to every udev monitor in a testbed.
///
/// umockdev's preload library replaces the netlink socket of a monitor with a datagram socket
/// "event<number>" in the testbed's folder. It holds about ten messages; more are queued here, as
/// in the kernel. libumockdev's own sender is unsuitable: it sends nothing for a removed device,
/// and it needs the preload library in this process, which would hide the real ttys from a tap.
class UeventSender {
public:
    explicit UeventSender(std::filesystem::path folder);
    ~UeventSender();
    UeventSender(const UeventSender&) = delete;
    UeventSender& operator=(const UeventSender&) = delete;

    /// Sends an event with "NAME=value" properties. Does not block.
    /// @throws std::runtime_error if a monitor has 200 unread events: it misses this one.
    void Send(const std::vector<std::string>& properties);

private:
    using Messages = std::deque<std::string>;

    void DrainLoop();
    void Drain();

    std::filesystem::path folder;
    std::mutex mutex;  // guards backlog and stopping
    std::condition_variable condition;
    std::map<std::filesystem::path, Messages> backlog;  // by socket; no empty entries
    bool stopping = false;
    std::thread thread;
};

/// The devices that COMMAND sees in place of the real ones: a folder with sysfs and dev trees that
/// umockdev's preload library shows to it.
///
/// Master 2 is the tty "ttyACM2" of a USB device. The folder exists as long as the object. Threads
/// may work on different masters at the same time.
class Testbed {
public:
    Testbed();
    ~Testbed();
    Testbed(const Testbed&) = delete;
    Testbed& operator=(const Testbed&) = delete;

    const std::filesystem::path& Folder() const { return folder; }

    /// Creates /dev/ttyACM<number>, a link to the tty, and its devices in sysfs. Sends no event.
    void Add(std::size_t number, const std::string& ttyPath);

    /// Removes only the node. Call it before hanging up: the pty's number may be reused at once.
    void RemoveNode(std::size_t number) const;

    /// Removes the devices from sysfs. Sends no event.
    void RemoveDevices(std::size_t number) const;

    /// Add() and an "add" event.
    void Plug(std::size_t number, const std::string& ttyPath);

    /// RemoveDevices() and a "remove" event, after 20 ms: udevd's events lag behind a hang-up.
    void Unplug(std::size_t number);

    /// Sends a udev event for the tty, which need not exist.
    void SendEvent(std::size_t number, const std::string& action);

private:
    void AddSubsystem(const std::filesystem::path& device, const std::string& subsystem,
                      const std::string& uevent) const;

    std::filesystem::path folder;
    UeventSender sender;
    std::atomic<unsigned> eventCount = 0;
};

/// The value of LD_PRELOAD that makes COMMAND see only the devices of a testbed.
/// @param testbedFolder gets a link to our own library
/// @param libraryFolder contains our own library
/// @throws std::exception if a library cannot be loaded
std::string PreloadList(const std::filesystem::path& testbedFolder,
                        const std::filesystem::path& libraryFolder);

}  // namespace simulator
