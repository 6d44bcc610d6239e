#pragma once

#include "doctor/DaemonLog.h"
#include "doctor/Finding.h"
#include "doctor/Host.h"

namespace tavrik {

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

}  // namespace tavrik
