#pragma once

#include <sys/types.h>

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace tavrikctl {

struct Process {
    pid_t pid;
    std::string name;  ///< the kernel's: 15 bytes at most

    /// "NAME (process PID)", as it may be shown.
    std::string Text() const;
};

/// The processes of this host's network, and what they have open, at the time of construction.
class ProcessTable {
public:
    ProcessTable();

    /// The first process of this name.
    std::optional<Process> Find(const std::string& name) const;

    /// Who has the character device open. Incomplete without root.
    std::vector<Process> HoldersOfDevice(dev_t device) const;

    /// Who has the socket open; unknown without root if it is another user's.
    std::optional<Process> HolderOfSocket(std::uint64_t inode) const;

    /// Whether what `pid` has open could be read.
    bool Sees(pid_t pid) const;

    /// Whether what all processes have open could be read.
    bool SeesAll() const;

private:
    struct Entry {
        std::string name;
        bool readable = false;
        std::set<dev_t> devices;
        std::set<std::uint64_t> sockets;  // inodes
    };

    static void ReadOpenFiles(const std::string& folder, Entry& entry);

    std::map<pid_t, Entry> entries;
};

}  // namespace tavrikctl
