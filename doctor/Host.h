#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

#include "doctor/Masters.h"
#include "doctor/ProcessTable.h"
#include "doctor/Service.h"

namespace tavrik {

/// A user with all groups, as the kernel checks permissions.
struct Account {
    uid_t user;
    std::vector<gid_t> groups;

    /// The account of a running process.
    static std::optional<Account> OfProcess(pid_t pid);

    /// The account of a process that runs as user `name`.
    static std::optional<Account> OfUser(const std::string& name);

    std::string Name() const;

    /// By owner, group and mode; an access control list may grant more.
    bool MayReadAndWrite(const struct stat& file) const;
};

/// The state of this machine at the time of construction. That takes up to 10 s if systemd does not
/// answer.
struct Host {
    ProcessTable processes;
    std::optional<ServiceState> service = ServiceState::Read();
    std::optional<Process> daemon = processes.Find(kDaemonName);
    std::optional<Account> account = FindAccount();  ///< of the daemon, also if it does not run
    std::vector<UsbTty> ttys = ListUsbTtys();

    /// Whether the daemon runs in pellix-sim and the doctor does not: then udev reports other
    /// masters to the doctor.
    bool DaemonRunsInSimulator() const;

    /// Whether the daemon is seen to have the tty open.
    bool DaemonHasOpen(const UsbTty& tty) const;

    /// The command that starts or restarts the daemon.
    std::string StartCommand() const;

    /// From the process, otherwise from the service, otherwise the default of the package.
    std::optional<Account> FindAccount() const;
};

/// The name of a user, or the number if it has no name.
std::string UserName(uid_t user);

/// Owner, group and mode of a file: "root:dialout 0660".
std::string PermissionText(const struct stat& file);

/// The status of `node` without opening the device; nothing if it is not accessible.
std::optional<struct stat> StatusOfNode(const std::string& node);

/// Whether `host`, a name or an address, is this machine. May ask a name server.
bool IsThisMachine(const std::string& host);

}  // namespace tavrik
