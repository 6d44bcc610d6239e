#pragma once

#include <string>
#include <string_view>

#include "simulator/FileDescriptor.h"
#include "simulator/Port.h"

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
class PtyPort final : public Port {
public:
    enum class Start { Raw, Cooked };

    /// @param start Cooked leaves echo and line mode on, as the kernel sets them on a new tty.
    /// Until a client switches them off, text is sent in whole USB packets of 64 bytes, which
    /// splits lines at any place.
    /// @throws std::system_error
    explicit PtyPort(Start start);

    int Descriptor() const override { return pty.Descriptor(); }
    short PollEvents() const override;

    /// @return at most 4096 bytes
    std::string Read() override;

    /// Sends `text` with one write.
    void Send(std::string_view text) override;
    void Flush() override;
    bool WaitsForRoom() const override { return waitsForRoom; }

    void SetStalled(bool on) override;
    bool IsStalled() const override { return stalled; }

    std::string NodePath() const override { return pty.NodePath(); }
    bool IsRaw() const override;

private:
    Pty pty;
    FileDescriptor tty;
    std::string unsent;
    bool waitsForRoom = false;
    bool packetsOnly;
    bool stalled = false;
};

}  // namespace simulator
