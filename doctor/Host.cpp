#include "doctor/Host.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>

namespace tavrik {

namespace {

/// The folder of the simulated devices that a process sees; empty if it sees the real ones.
std::string FolderOfSimulation(const std::string& process) {
    const std::string variable = "UMOCKDEV_DIR=";
    std::ifstream environment("/proc/" + process + "/environ");
    for (std::string entry; std::getline(environment, entry, '\0');) {
        if (entry.starts_with(variable)) {
            return entry.substr(variable.size());
        }
    }
    return "";
}

}  // namespace

std::optional<Account> Host::FindAccount() const {
    constexpr const char* kUserOfPackage = "tavrik";
    if (daemon) {
        return Account::OfProcess(daemon->pid);
    }
    const bool isNamed = service && !service->user.empty();
    return Account::OfUser(isNamed ? service->user : kUserOfPackage);
}

bool Host::DaemonIsBehindSimulator() const {
    const std::string folder = daemon ? FolderOfSimulation(std::to_string(daemon->pid)) : "";
    return !folder.empty() && folder != FolderOfSimulation("self");
}

bool Host::DaemonHasOpen(const UsbTty& tty) const {
    const auto status = StatusOfNode(tty.node);
    if (!daemon || !status) {
        return false;
    }
    const auto holders = processes.HoldersOfDevice(*status);
    return std::any_of(holders.begin(), holders.end(),
                       [this](const Process& each) { return each.pid == daemon->pid; });
}

std::string Host::StartCommand() const {
    return service && service->IsInstalled() ? "systemctl restart tavrikdaemon"
                                             : "start TavrikDaemon";
}

std::optional<struct stat> StatusOfNode(const std::string& node) {
    const int descriptor = open(node.c_str(), O_PATH | O_CLOEXEC);
    if (descriptor == -1) {
        return std::nullopt;
    }
    struct stat status = {};
    const bool isThere = fstat(descriptor, &status) == 0;
    close(descriptor);
    return isThere ? std::optional(status) : std::nullopt;
}

}  // namespace tavrik
