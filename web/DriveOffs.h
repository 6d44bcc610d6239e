#pragma once

#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "web/PageCommand.h"
#include "web/Worker.h"

namespace tavrik {

/// Switches drives off, of several grippers in parallel. Waiting requests for the same gripper
/// share one call.
class DriveOffs {
public:
    /// Runs a command and returns the result. Called on up to four threads at the same time; must
    /// not throw.
    using Run = std::function<CommandResult(const PageCommand& command, Daemon& daemon)>;
    /// Called on one of these threads, unless the DriveOffs ends before; must not throw.
    using Report = std::function<void(const CommandResult& result)>;

    DriveOffs(const Endpoint& endpoint, Run run);

    /// Any thread may call.
    /// @param report called with the result of a call that begins after this one
    /// @return false when too many grippers are waiting
    bool Enqueue(const PageCommand& command, Report report);

private:
    std::vector<Report> TakeReports(const std::string& device);

    const Run run;
    std::mutex mutex;                                    // guards `waiting`; taken before Worker's
    std::map<std::string, std::vector<Report>> waiting;  // by device
    Worker worker;                                       // last: uses all others
};

}  // namespace tavrik
