#pragma once

#include <string>
#include <string_view>

#include "simulator/FileDescriptor.h"
#include "simulator/Pty.h"

namespace simulator {

/// The device's side of one tty: a pty that stands behind the tty's node.
///
/// Destroying it hangs the tty up: whoever has it open reads 0 from then on. Not thread-safe.
class PtyPort {
public:
    enum class Start { Raw, Cooked };

    /// @param start Cooked leaves echo and line mode on, as a kernel tty begins its life. While
    /// they are on, text leaves in whole USB packets of 64 bytes, so that a line is cut anywhere.
    /// @throws std::system_error when there is no pty to be had.
    explicit PtyPort(Start start);

    /// Node of the tty ("/dev/pts/3").
    const std::string& NodePath() const { return pty.NodePath(); }

    /// For poll: readable when the other side wrote; writable when there is room for more text.
    int Descriptor() const { return pty.Descriptor(); }

    /// @return what the other side wrote, at most 4096 bytes; empty when there is nothing.
    std::string Read();

    /// Sends `text` with one write. What the tty has no room for waits, up to 4096 bytes; a text
    /// that would make it more is lost whole.
    void Send(std::string_view text);
    void Flush();
    bool WaitsForRoom() const { return waitsForRoom; }

    /// A stalled port takes no bytes from the other side, which finds no room to write.
    void SetStalled(bool on);
    bool IsStalled() const { return stalled; }

    /// False while the tty echoes or collects lines.
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
