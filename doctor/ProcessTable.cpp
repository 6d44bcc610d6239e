#include "doctor/ProcessTable.h"

#include <sys/sysmacros.h>

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <string>

namespace tavrik {

namespace fs = std::filesystem;

namespace {

/// Empty if it may not be read.
std::string NetworkOf(const std::string& folder) {
    std::error_code error;
    return fs::read_symlink(folder + "/ns/net", error);
}

/// From a line such as "5 (NAME) S 1 ..."; the name may have blanks and parentheses.
/// @return nothing for one that has ended
std::optional<Process> ReadProcess(pid_t pid, const std::string& path) {
    std::ifstream file(path);
    std::string text;
    std::getline(file, text, '\0');  // whole; iterators would throw if the process ends meanwhile
    const std::size_t first = text.find('(');
    const std::size_t last = text.rfind(") ");
    if (first == std::string::npos || last == std::string::npos || last + 2 >= text.size()) {
        return std::nullopt;
    }
    const char state = text[last + 2];
    if (state == 'Z' || state == 'X') {
        return std::nullopt;
    }
    pid_t parent = 0;
    constexpr std::size_t kParent = 4;  // after the parenthesis, a blank and the state
    std::from_chars(text.data() + std::min(last + kParent, text.size()), text.data() + text.size(),
                    parent);
    return Process{pid, text.substr(first + 1, last - first - 1), parent, state == 'T'};
}

}  // namespace

std::string Process::Text() const {
    return name + " (process " + std::to_string(pid) + ")";
}

bool IsPseudoTerminal(dev_t device) {
    constexpr unsigned kFirst = 136;  // majors, as the kernel assigns them
    constexpr unsigned kLast = 143;
    return major(device) >= kFirst && major(device) <= kLast;
}

ProcessTable::ProcessTable(const std::string& folder) : ourNetwork(NetworkOf(folder + "/self")) {
    std::error_code error;
    for (fs::directory_iterator process(folder, error);
         !error && process != fs::directory_iterator(); process.increment(error)) {
        const std::string number = process->path().filename();
        pid_t pid = 0;
        std::from_chars(number.data(), number.data() + number.size(), pid);
        if (pid > 0) {
            Add(pid, process->path());
        }
    }
}

void ProcessTable::Add(pid_t pid, const std::string& folder) {
    const auto process = ReadProcess(pid, folder + "/stat");
    if (!process) {
        return;
    }
    Entry entry{*process, NetworkOf(folder)};
    ReadOpenFiles(folder + "/fd", entry);
    entries.emplace(pid, std::move(entry));
}

ProcessTable::Device ProcessTable::DeviceOf(const struct stat& node) {
    return {node.st_rdev, IsPseudoTerminal(node.st_rdev) ? node.st_dev : 0};
}

/// Every step may fail, because processes end and close files at any time.
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
            entry.devices.insert(DeviceOf(status));
        } else if (S_ISSOCK(status.st_mode)) {
            entry.sockets.insert(status.st_ino);
        }
    }
}

std::optional<Process> ProcessTable::Find(const std::string& name) const {
    for (const std::string& network : {ourNetwork, std::string()}) {
        const auto found = std::ranges::find_if(entries, [&](const auto& each) {
            return each.second.process.name == name && each.second.network == network;
        });
        if (found != entries.end()) {
            return found->second.process;
        }
    }
    return std::nullopt;
}

std::optional<Process> ProcessTable::FindInOtherNetwork(const std::string& name) const {
    const auto found = std::ranges::find_if(entries, [&](const auto& each) {
        const Entry& entry = each.second;
        return entry.process.name == name && !entry.network.empty() && entry.network != ourNetwork;
    });
    return found == entries.end() ? std::nullopt : std::optional(found->second.process);
}

std::vector<Process> ProcessTable::HoldersOfDevice(const struct stat& node) const {
    std::vector<Process> holders;
    for (const auto& [pid, entry] : entries) {
        if (entry.devices.contains(DeviceOf(node))) {
            holders.push_back(entry.process);
        }
    }
    return holders;
}

std::optional<Process> ProcessTable::HolderOfSocket(std::uint64_t inode) const {
    const auto found = std::ranges::find_if(
        entries, [=](const auto& each) { return each.second.sockets.contains(inode); });
    return found == entries.end() ? std::nullopt : std::optional(found->second.process);
}

bool ProcessTable::CanReadOpenFiles(pid_t pid) const {
    const auto found = entries.find(pid);
    return found != entries.end() && found->second.readable;
}

bool ProcessTable::CanReadAllOpenFiles() const {
    return ListsAllProcesses() &&
           std::ranges::all_of(entries, [](const auto& each) { return each.second.readable; });
}

bool ProcessTable::ListsAllProcesses() const {
    return entries.contains(1);  // init, which never ends and belongs to root
}

}  // namespace tavrik
