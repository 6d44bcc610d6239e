#pragma once

#include <sys/epoll.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "bench/FastMaster.h"
#include "simulator/FileDescriptor.h"

namespace bench {

/// Lines a second of each master; nothing for as fast as its tty takes them.
using StreamRate = std::optional<unsigned>;

/// All masters of a cell, and the descriptors that its program waits for beside them.
///
/// Everything happens in Serve(), on one thread and with one epoll descriptor: what the masters
/// cost has to stay below what is measured on their other side. Not thread-safe.
class FastMasters {
public:
    /// @param count how many there are, none of them plugged in; at most 100
    /// @param ownFinTime as for FastMaster, of all masters
    /// @throws std::system_error
    explicit FastMasters(std::size_t count, SharedTime* ownFinTime = nullptr);
    FastMasters(const FastMasters&) = delete;
    FastMasters& operator=(const FastMasters&) = delete;

    /// @return the node of the new tty
    /// @throws std::runtime_error when there is no such master, or it is plugged in
    const std::string& Plug(std::size_t number);

    /// Hangs the tty up.
    /// @throws std::runtime_error when there is no such master, or it is not plugged in
    void Unplug(std::size_t number);

    /// All masters send their lines on the same ticks; those of missed ticks come with the next.
    void SetRate(StreamRate linesPerSecond);

    /// Lines of process data that all masters have sent.
    std::uint64_t LinesSent() const { return linesSent; }

    /// Has Serve() return when `descriptor` is readable.
    /// @return false for a file, which nobody can wait for
    bool Watch(int descriptor);
    void Unwatch(int descriptor);

    /// Serves the masters until a watched descriptor is readable.
    /// @return that descriptor
    int Serve();

private:
    struct Place {
        std::optional<FastMaster> master;
        std::uint32_t events = 0;  // that epoll looks for
    };

    Place& PlaceOf(std::size_t number);
    void ServeMaster(std::size_t number, std::uint32_t events);
    void Tick();
    void UpdateEvents(std::size_t number);
    void Control(int operation, int descriptor, std::uint32_t events, std::uint64_t mark);

    std::uint64_t linesSent = 0;
    SharedTime* finTime;
    std::vector<Place> places;
    simulator::FileDescriptor epoll;
    simulator::FileDescriptor timer;
    StreamRate rate = 0;
    std::array<epoll_event, 64> ready{};
};

}  // namespace bench
