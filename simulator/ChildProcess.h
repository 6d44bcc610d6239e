#pragma once

#include <sys/types.h>

#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace simulator {

/// COMMAND, from its start to its end.
class ChildProcess {
public:
    using Environment = std::map<std::string, std::string>;

    /// Starts `command` with its own process group, the default action for every signal, and
    /// /dev/null as standard input. It is killed when this process dies before it.
    /// @param additions set in the environment, over what this process has
    /// @return its process id
    /// @throws std::system_error
    pid_t Start(const std::vector<std::string>& command, const Environment& additions);

    /// Any thread. @return false when the process does not run.
    bool Signal(int number);

    /// Collects the process if it has ended.
    /// @return its exit status, or 128 + the signal that ended it; nothing while it runs.
    std::optional<int> Collect();

private:
    std::mutex mutex;  // guards pid, so that no signal goes to a number that was given away again
    pid_t pid = 0;
};

}  // namespace simulator
