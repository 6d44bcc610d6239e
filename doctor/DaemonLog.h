#pragma once

#include <sys/types.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace tavrik {

/// What the daemon's log tells of a master, as far as it reaches back.
struct LoggedMaster {
    std::optional<std::string> id;
    std::optional<int> mode;  ///< of its data link, 0 to 7
    std::string failure;      ///< the line with which its link failed; empty if it did not
};

/// The daemon's log, which alone tells the ID and the mode of a master: no call does.
class DaemonLog {
public:
    /// @param lines those of the log, oldest first; others between them do no harm
    explicit DaemonLog(const std::vector<std::string>& lines);

    /// What the system's journal has of the process `daemon`; nothing if it has none of it, or may
    /// not be read.
    static DaemonLog OfProcess(pid_t daemon);

    /// What was logged of the master at `node` since its tty was last opened; null if nothing was.
    const LoggedMaster* Find(const std::string& node) const;

private:
    void Take(const std::string& thread, const std::string& message);
    LoggedMaster* MasterOf(const std::string& thread);

    std::map<std::string, LoggedMaster> masters;     // by node
    std::map<std::string, std::string> threadNodes;  // the node that a thread is busy with
    std::string openedNode;                          // the last one
};

}  // namespace tavrik
