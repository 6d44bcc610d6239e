#pragma once

#include <string>

#include "simulator/FileDescriptor.h"

namespace bench {

/// Opens a master's tty with the settings that the daemon gives it: raw, and a read waits at most
/// 1 s for the first byte. What came before is dropped.
/// @throws std::system_error
simulator::FileDescriptor OpenTty(const std::string& path);

}  // namespace bench
