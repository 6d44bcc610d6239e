#include "tools/doctor/ProcessTable.h"

#include <sys/stat.h>

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <fstream>

#include "tools/Printable.h"

namespace tavrikctl {

namespace fs = std::filesystem;

namespace {

/// Processes of another network, as those in a container, serve others. Who may not be asked
/// counts as one of ours.
bool IsInOurNetwork(const std::string& folder) {
    std::error_code error;
    const fs::path theirs = fs::read_symlink(folder + "/ns/net", error);
    return error || theirs == fs::read_symlink("/proc/self/ns/net", error);
}

}  // namespace

std::string Process::Text() const {
    return Printable(name) + " (process " + std::to_string(pid) + ")";
}

ProcessTable::ProcessTable() {
    for (const auto& folder : fs::directory_iterator("/proc")) {
        const std::string number = folder.path().filename();
        const std::string path = folder.path();
        pid_t pid = 0;
        std::from_chars(number.data(), number.data() + number.size(), pid);
        if (pid == 0 || !IsInOurNetwork(path)) {
            continue;
        }
        Entry entry;
        std::ifstream file(path + "/comm");
        if (std::getline(file, entry.name)) {
            ReadOpenFiles(path + "/fd", entry);
            entries.emplace(pid, std::move(entry));
        }
    }
}

/// Every step may fail, because processes end and close files meanwhile.
void ProcessTable::ReadOpenFiles(const std::string& folder, Entry& entry) {
    std::error_code error;
    fs::directory_iterator files(folder, error);
    entry.readable = !error;
    for (; !error && files != fs::directory_iterator(); files.increment(error)) {
        struct stat status = {};
        if (stat(files->path().c_str(), &status) != 0) {
            continue;
        }
        if (S_ISCHR(status.st_mode)) {
            entry.devices.insert(status.st_rdev);
        } else if (S_ISSOCK(status.st_mode)) {
            entry.sockets.insert(status.st_ino);
        }
    }
}

std::optional<Process> ProcessTable::Find(const std::string& name) const {
    const auto found = std::find_if(entries.begin(), entries.end(),
                                    [&](const auto& each) { return each.second.name == name; });
    return found == entries.end() ? std::nullopt : std::optional(Process{found->first, name});
}

std::vector<Process> ProcessTable::HoldersOfDevice(dev_t device) const {
    std::vector<Process> holders;
    for (const auto& [pid, entry] : entries) {
        if (entry.devices.contains(device)) {
            holders.push_back({pid, entry.name});
        }
    }
    return holders;
}

std::optional<Process> ProcessTable::HolderOfSocket(std::uint64_t inode) const {
    const auto found = std::find_if(entries.begin(), entries.end(), [=](const auto& each) {
        return each.second.sockets.contains(inode);
    });
    return found == entries.end() ? std::nullopt
                                  : std::optional(Process{found->first, found->second.name});
}

bool ProcessTable::Sees(pid_t pid) const {
    const auto found = entries.find(pid);
    return found != entries.end() && found->second.readable;
}

bool ProcessTable::SeesAll() const {
    return std::all_of(entries.begin(), entries.end(),
                       [](const auto& each) { return each.second.readable; });
}

}  // namespace tavrikctl
