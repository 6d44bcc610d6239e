#pragma once

#include <csignal>

namespace simulator {

/// Blocks the signals that a program with a COMMAND waits for, in this thread and those that it
/// starts: what it passes on (SIGINT, SIGTERM, SIGHUP), and SIGCHLD. All others stay as they are,
/// but writing to a closed pipe or beyond a file's largest size and reading from a terminal in the
/// background only fail.
/// @return the blocked ones
sigset_t BlockSignals();

}  // namespace simulator
