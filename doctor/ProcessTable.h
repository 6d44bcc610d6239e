#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace tavrik {

struct Process {
    pid_t pid;
    std::string name;        ///< the kernel's: 15 bytes at most
    pid_t parent = 0;        ///< process id; 0 if none or unknown
    bool isStopped = false;  ///< by a signal

    /// "NAME (process PID)".
    std::string Text() const;
};

/// Whether a device is a pseudo-terminal. Each container has its own, with the same numbers.
bool IsPseudoTerminal(dev_t device);

/// The processes, and what they have open, at the time of construction. Zombies do not count.
class ProcessTable {
public:
    /// @param folder where the kernel shows them
    explicit ProcessTable(const std::string& folder = "/proc");

    /// The first process of this name in this network namespace: one in a container cannot be
    /// reached from here. Without root, one whose network is unknown if there is no other.
    std::optional<Process> Find(const std::string& name) const;

    /// The first process of this name that is known to be in another network namespace, as those
    /// of a container are.
    std::optional<Process> FindInOtherNetwork(const std::string& name) const;

    /// The processes that have the character device `node` open. Incomplete without root.
    std::vector<Process> HoldersOfDevice(const struct stat& node) const;

    /// The process that has the socket open; not found without root if it is another user's.
    std::optional<Process> HolderOfSocket(std::uint64_t inode) const;

    /// Whether the list of files that `pid` has open could be read.
    bool CanReadOpenFiles(pid_t pid) const;

    /// Whether the lists of all processes could be read.
    bool CanReadAllOpenFiles() const;

    /// Whether no process is hidden: the system may hide those of other users.
    bool ListsAllProcesses() const;

private:
    using Device = std::pair<dev_t, dev_t>;  // number, and file system of a pseudo-terminal

    struct Entry {
        Process process;
        std::string network;  // empty if unknown
        bool readable = false;
        std::set<Device> devices = {};
        std::set<std::uint64_t> sockets = {};  // inodes
    };

    void Add(pid_t pid, const std::string& folder);
    static Device DeviceOf(const struct stat& node);
    static void ReadOpenFiles(const std::string& folder, Entry& entry);

    std::string ourNetwork;
    std::map<pid_t, Entry> entries;
};

}  // namespace tavrik
