#pragma once

#include "tools/doctor/DaemonLog.h"
#include "tools/doctor/Finding.h"
#include "tools/doctor/Host.h"

namespace tavrikctl {

/// What the daemon's log tells of the masters: their ID, and the mode of their data link.
class LinkCheck {
public:
    /// @param machine its daemon runs
    /// @param daemonLog must outlive the check
    /// @param isMissed whether it matters if the log tells nothing
    LinkCheck(const Host& machine, const DaemonLog& daemonLog, bool isMissed)
        : host(machine), log(daemonLog), missed(isMissed) {}
    Findings Run() const;

private:
    const Host& host;
    const DaemonLog& log;
    bool missed;
};

}  // namespace tavrikctl
