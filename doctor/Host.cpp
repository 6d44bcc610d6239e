#include "doctor/Host.h"

#include <fcntl.h>
#include <grp.h>
#include <netdb.h>
#include <pwd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <fstream>
#include <sstream>

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

// The doctor has one thread only.
// NOLINTBEGIN(concurrency-mt-unsafe)

std::string UserName(uid_t user) {
    const passwd* const entry = getpwuid(user);
    return entry == nullptr ? std::to_string(user) : entry->pw_name;
}

std::string PermissionText(const struct stat& file) {
    const ::group* const entry = getgrgid(file.st_gid);
    std::array<char, 8> mode{};
    std::snprintf(mode.data(), mode.size(), "%04o", file.st_mode & 0777U);
    return UserName(file.st_uid) + ":" +
           (entry == nullptr ? std::to_string(file.st_gid) : entry->gr_name) + " " + mode.data();
}

std::optional<Account> Account::OfUser(const std::string& name) {
    constexpr int kMostGroups = 1024;
    const passwd* const entry = getpwnam(name.c_str());
    int count = kMostGroups;
    std::vector<gid_t> groups(kMostGroups);
    if (entry == nullptr || getgrouplist(name.c_str(), entry->pw_gid, groups.data(), &count) < 0) {
        return std::nullopt;
    }
    groups.resize(static_cast<std::size_t>(count));
    return Account{entry->pw_uid, groups};
}
// NOLINTEND(concurrency-mt-unsafe)

std::optional<Account> Account::OfProcess(pid_t pid) {
    std::ifstream file("/proc/" + std::to_string(pid) + "/status");
    std::optional<uid_t> user;
    std::vector<gid_t> groups;
    for (std::string line; std::getline(file, line);) {
        std::istringstream words(line);
        std::string title;
        id_t real = 0;
        id_t effective = 0;
        words >> title;
        if (title == "Uid:" && words >> real >> effective) {
            user = effective;
        } else if (title == "Gid:" && words >> real >> effective) {
            groups.push_back(effective);
        } else if (title == "Groups:") {
            for (gid_t group = 0; words >> group;) {
                groups.push_back(group);
            }
        }
    }
    return user ? std::optional(Account{*user, groups}) : std::nullopt;
}

std::string Account::Name() const {
    return UserName(user);
}

bool Account::MayReadAndWrite(const struct stat& file) const {
    const bool isInGroup = std::ranges::find(groups, file.st_gid) != groups.end();
    const mode_t wanted = file.st_uid == user ? S_IRUSR | S_IWUSR
                          : isInGroup         ? S_IRGRP | S_IWGRP
                                              : S_IROTH | S_IWOTH;
    return user == 0 || (file.st_mode & wanted) == wanted;
}

std::optional<Account> Host::FindAccount() const {
    constexpr const char* kUserOfPackage = "tavrik";
    if (daemon) {
        return Account::OfProcess(daemon->pid);
    }
    const bool isNamed = service && !service->user.empty();
    return Account::OfUser(isNamed ? service->user : kUserOfPackage);
}

bool Host::DaemonRunsInSimulator() const {
    const std::string folder = daemon ? FolderOfSimulation(std::to_string(daemon->pid)) : "";
    return !folder.empty() && folder != FolderOfSimulation("self");
}

bool Host::DaemonHasOpen(const UsbTty& tty) const {
    const auto status = StatusOfNode(tty.node);
    return daemon && status &&
           std::ranges::any_of(processes.HoldersOfDevice(*status),
                               [this](const Process& holder) { return holder.pid == daemon->pid; });
}

std::string Host::StartCommand() const {
    return service && service->IsInstalled() ? "systemctl restart tavrikdaemon"
                                             : std::string(kDaemonName);
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

bool IsThisMachine(const std::string& host) {
    addrinfo hints = {};
    hints.ai_family = AF_INET;  // the daemon serves no other
    hints.ai_socktype = SOCK_DGRAM;
    addrinfo* found = nullptr;
    if (getaddrinfo(host.c_str(), nullptr, &hints, &found) != 0) {
        return false;
    }
    // The kernel binds a socket to an address of this machine only.
    const int descriptor = socket(found->ai_family, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const bool isOurs =
        descriptor != -1 && bind(descriptor, found->ai_addr, found->ai_addrlen) == 0;
    close(descriptor);
    freeaddrinfo(found);
    return isOurs;
}

}  // namespace tavrik
