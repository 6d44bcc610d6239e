#pragma once

#include <optional>
#include <vector>

#include "doctor/Account.h"
#include "doctor/ProcessTable.h"
#include "doctor/ServiceState.h"
#include "doctor/UsbTty.h"

namespace tavrik {

/// What the machine that the daemon runs on tells, at the time of construction.
struct Host {
    ProcessTable processes;
    std::optional<ServiceState> service = ServiceState::Read();
    std::optional<Process> daemon = processes.Find(kDaemonName);
    std::optional<Account> account = FindAccount();  ///< as which the daemon runs, or would
    std::vector<UsbTty> ttys = ListUsbTtys();

    /// Whether the daemon is seen to run in pellix-sim, and the doctor not in the same: udev tells
    /// the doctor of other masters then.
    bool DaemonIsBehindSimulator() const;

    /// Whether the daemon runs and is seen to have the tty open.
    bool DaemonHasOpen(const UsbTty& tty) const;

    /// How to start the daemon, or to start it again.
    std::string StartCommand() const;

    /// By its process, or else by the service, or else by what the package gives it.
    std::optional<Account> FindAccount() const;
};

/// The file behind `node` without opening the device; nothing if it cannot be reached.
std::optional<struct stat> StatusOfNode(const std::string& node);

}  // namespace tavrik
