#include "tools/doctor/Host.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>

namespace tavrikctl {

std::optional<Account> Host::FindAccount() const {
    constexpr const char* kUserOfPackage = "tavrik";
    if (daemon) {
        return Account::OfProcess(daemon->pid);
    }
    const bool isNamed = service && !service->user.empty();
    return Account::OfUser(isNamed ? service->user : kUserOfPackage);
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

}  // namespace tavrikctl
