#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "simulator/Port.h"

namespace simulator {

struct Station;

/// Where masters are plugged in. Called by one thread at a time.
class Bus {
public:
    Bus() = default;
    Bus(const Bus&) = delete;
    Bus& operator=(const Bus&) = delete;
    virtual ~Bus() = default;

    /// Creates the port of a master, which no client sees yet. Called on the cell's thread.
    virtual std::unique_ptr<Port> CreatePort(std::size_t number, Station& station) = 0;

    /// Shows the port of a master to clients, and reports it to udev.
    /// @throws std::runtime_error
    virtual void Attach(std::size_t number) = 0;

    /// Called before the port is destroyed.
    /// @param reported whether Detach() follows
    /// @throws std::runtime_error if every removal is reported
    virtual void PrepareHangUp(std::size_t number, bool reported) = 0;

    /// Called after the port has been destroyed. Waits until the removal has been reported.
    /// @throws std::runtime_error if it has not been reported in time; Detach() may then be called
    /// again
    virtual void Detach(std::size_t number) = 0;

    /// Makes udev report an event for the tty of a master.
    /// @throws std::runtime_error
    virtual void SendEvent(std::size_t number, const std::string& action) = 0;

    /// Resets the USB device of a master, as its driver may do.
    /// @throws std::runtime_error
    virtual void Reset(std::size_t number) = 0;

    /// Whether ttys start with echo and line mode on, and with text that the device has buffered.
    virtual bool StartsCooked() const = 0;
};

}  // namespace simulator
