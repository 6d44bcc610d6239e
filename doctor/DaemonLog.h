#pragma once

#include <sys/types.h>

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "doctor/Finding.h"

namespace tavrik {

struct Host;

/// What the daemon's log says about a master, as far as it reaches back.
struct LoggedMaster {
    std::optional<std::string> id;
    std::optional<int> mode;  ///< of its data link, 0 to 7
    std::string failure;      ///< the line with which its link failed; empty if it did not
};

/// The daemon's log: the only source of the ID and the mode of a master, which no call returns.
class DaemonLog {
public:
    /// @param lines of the log, oldest first; other lines are ignored
    explicit DaemonLog(const std::vector<std::string>& lines);

    /// What the journal has of the process `daemon`; empty if it has nothing or may not be read.
    static DaemonLog OfProcess(pid_t daemon);

    /// What a file has.
    /// @throws Failure (Failed)
    static DaemonLog OfFile(const std::string& path);

    /// Takes the next line.
    void Take(std::string_view line);

    /// What was logged about the master at `node` since its tty was last opened, or null.
    const LoggedMaster* Find(const std::string& node) const;

private:
    void Take(std::uint64_t thread, std::string_view message);
    LoggedMaster* MasterOf(std::uint64_t thread);

    std::map<std::string, LoggedMaster> masters;       // by node
    std::map<std::uint64_t, std::string> threadNodes;  // the node that a thread works on
    std::string openedNode;                            // the last one
};

/// What the log says about the masters: their ID, and the mode of their data link.
/// @param isMissed whether it matters if the log says nothing
Findings CheckLinks(const Host& host, const DaemonLog& log, bool isMissed);

/// What the log in a file says about each gripper's calls.
/// @throws Failure (Failed)
Findings CheckLogFile(const std::string& path);

}  // namespace tavrik
