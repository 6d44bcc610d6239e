#pragma once

#include <chrono>
#include <condition_variable>
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
/// Under umockdev's preload library a monitor's netlink socket is a datagram socket named
/// "event<number>" in the testbed's folder; it takes the messages that udevd would broadcast, but
/// holds no more than about ten. What is beyond that waits here, as it would in the kernel.
class UeventSender {
public:
    explicit UeventSender(std::filesystem::path testbedFolder);
    ~UeventSender();
    UeventSender(const UeventSender&) = delete;
    UeventSender& operator=(const UeventSender&) = delete;

    /// Sends one event with the given "NAME=value" properties. Does not wait for anybody.
    /// @throws std::runtime_error when a monitor has not read its last 200 events: it misses this.
    void Send(const std::vector<std::string>& properties);

private:
    using Messages = std::deque<std::string>;

    void DrainLoop();
    void Drain();

    std::filesystem::path folder;
    std::mutex mutex;  // guards backlog and stopping
    std::condition_variable condition;
    std::map<std::filesystem::path, Messages> backlog;  // by socket; none of them is empty
    bool stopping = false;
    std::thread thread;
};

}  // namespace simulator
