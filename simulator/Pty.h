#pragma once

#include <string>

#include "simulator/FileDescriptor.h"

namespace simulator {

/// A pseudo-terminal: a tty whose device is this process. Its settings last as long as the object.
class Pty {
public:
    /// @throws std::system_error when there is none to be had.
    Pty();

    /// Hangs the tty up: whoever has it open reads 0 from then on.
    ~Pty();
    Pty(const Pty&) = delete;
    Pty& operator=(const Pty&) = delete;

    /// Node of the tty ("/dev/pts/3").
    const std::string& NodePath() const { return nodePath; }

    /// The device's end, not blocking.
    int Descriptor() const { return device.Get(); }

    /// Opens the tty as its users do.
    FileDescriptor OpenTty() const;

    void SetRaw() const;

private:
    FileDescriptor device;
    std::string nodePath;
};

}  // namespace simulator
