#pragma once

#include <string>
#include <string_view>

#include "simulator/FileDescriptor.h"

namespace simulator {

/// A pseudo-terminal. The object is the device behind the tty; it keeps the tty's settings while
/// no program has the tty open.
class Pty {
public:
    /// @throws std::system_error
    Pty();

    /// Hangs the tty up: reads return 0 from then on.
    ~Pty();
    Pty(const Pty&) = delete;
    Pty& operator=(const Pty&) = delete;

    /// Path of the tty ("/dev/pts/3").
    const std::string& NodePath() const { return nodePath; }

    /// The device's end, non-blocking.
    int Descriptor() const { return device.Get(); }

    /// Opens the tty as a client does.
    FileDescriptor OpenTty() const;

    void SetRaw() const;

private:
    FileDescriptor device;
    std::string nodePath;
};

/// The tty of a simulated master. Not thread-safe.
class PtyPort {
public:
    enum class Start { Raw, Cooked };

    /// @param start Cooked leaves echo and line mode on, as the kernel sets them on a new tty.
    /// Until a client switches them off, text is sent in whole USB packets of 64 bytes, which
    /// splits lines at any place.
    /// @throws std::system_error
    explicit PtyPort(Start start);

    /// Path of the tty ("/dev/pts/3").
    const std::string& NodePath() const { return pty.NodePath(); }

    /// For poll: readable if the client has written; writable if there is room for more text.
    int Descriptor() const { return pty.Descriptor(); }

    /// @return up to 4096 bytes from the client; empty if there are none.
    std::string Read();

    /// Sends `text` with one write. Up to 4096 bytes that the tty does not accept are kept for
    /// Flush(); a text that exceeds this limit is dropped.
    void Send(std::string_view text);
    void Flush();
    bool WaitsForRoom() const { return waitsForRoom; }

    /// A stalled port accepts no bytes: writes of the client block.
    void SetStalled(bool on);
    bool IsStalled() const { return stalled; }

    /// False while the tty has echo or line mode on.
    bool IsRaw() const;

private:
    Pty pty;
    FileDescriptor tty;
    std::string unsent;
    bool waitsForRoom = false;
    bool packetsOnly;
    bool stalled = false;
};

}  // namespace simulator
