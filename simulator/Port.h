#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "simulator/LineProtocol.h"

namespace simulator {

/// What a master is plugged into: its end of the line to a client. Not thread-safe.
class Port {
public:
    Port() = default;
    Port(const Port&) = delete;
    Port& operator=(const Port&) = delete;
    virtual ~Port() = default;

    /// For poll, with the events of PollEvents().
    virtual int Descriptor() const = 0;
    virtual short PollEvents() const = 0;

    /// When to call Read() even if poll reports nothing.
    virtual std::optional<TimePoint> NextDue() const { return std::nullopt; }

    /// False if the other side has closed the port; the owner must then destroy it.
    virtual bool IsConnected() const { return true; }

    /// @return bytes from the client; empty if there are none, or while stalled.
    virtual std::string Read() = 0;

    /// Up to 4096 bytes that the client does not accept yet are kept for Flush(); a text that
    /// exceeds this limit is dropped.
    virtual void Send(std::string_view text) = 0;
    virtual void Flush() = 0;
    virtual bool WaitsForRoom() const = 0;

    /// A stalled port accepts no bytes: writes of the client block.
    virtual void SetStalled(bool on) = 0;
    virtual bool IsStalled() const = 0;

    /// Path of the tty ("/dev/pts/3"); empty if this process does not know it.
    virtual std::string NodePath() const { return {}; }

    /// True if the tty is known to have echo and line mode off.
    virtual bool IsRaw() const { return false; }
};

}  // namespace simulator
