#pragma once

#include <termios.h>

#include <string>

#include "simulator/FileDescriptor.h"

namespace simulator {

/// The tty of a real master, open: raw, 115200 baud, and closed to other programs but root's.
class MasterTty {
public:
    /// @throws std::system_error when it cannot be opened, is no tty, or is tapped already
    explicit MasterTty(const std::string& path);

    /// Leaves the settings as they were.
    ~MasterTty();
    MasterTty(const MasterTty&) = delete;
    MasterTty& operator=(const MasterTty&) = delete;

    /// Not blocking.
    int Descriptor() const { return tty.Get(); }

private:
    FileDescriptor tty;
    termios settingsBefore{};
};

}  // namespace simulator
