#pragma once

#include <sys/types.h>

#include <csignal>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace simulator {

/// The process of COMMAND.
class ChildProcess {
public:
    using Environment = std::map<std::string, std::string>;

    /// Starts `command` in its own process group, with default signal actions and /dev/null as
    /// standard input. It is killed if this process dies first.
    /// @param additions to the environment of this process
    /// @return its process id
    /// @throws std::system_error
    pid_t Start(const std::vector<std::string>& command, const Environment& additions);

    /// Thread-safe. @return false if the process is not running.
    bool Signal(int number);

    /// Collects the process if it has ended.
    /// @return its exit status, or 128 + the signal that ended it; nothing if it is running.
    std::optional<int> Collect();

private:
    std::mutex mutex;  // guards pid: a signal must not go to a reused process id
    pid_t pid = 0;
};

/// Blocks SIGINT, SIGTERM, SIGHUP and SIGCHLD for sigwait() in this thread and those that it
/// starts. Ignores SIGPIPE, SIGXFSZ and SIGTTIN, so that writing to a closed pipe or beyond the
/// file size limit, and reading from a terminal in the background, fail instead.
/// @return the blocked signals
sigset_t BlockSignals();

}  // namespace simulator
