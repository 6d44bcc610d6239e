#include "tools/doctor/TtyCheck.h"

#include <sys/sysmacros.h>

#include "tools/Printable.h"

namespace tavrikctl {

namespace {

/// pellix-sim keeps both ends of the pseudo-terminals that stand for ttys: it is the master.
bool IsSimulator(const Process& process, const struct stat& node) {
    constexpr unsigned kFirstPseudoTerminal = 136;  // majors, as the kernel assigns them
    constexpr unsigned kLastPseudoTerminal = 143;
    const unsigned number = major(node.st_rdev);
    return process.name == "pellix-sim" && number >= kFirstPseudoTerminal &&
           number <= kLastPseudoTerminal;
}

}  // namespace

Findings TtyCheck::Run() {
    const std::string mismatch = tty.Mismatch();
    if (!mismatch.empty()) {
        return {{Mark::Unknown, tty.node, "no master: " + mismatch, ""}};
    }
    const auto node = StatusOfNode(tty.node);
    if (!node) {
        return {{Mark::Wrong, tty.node, "udev knows a master there, but the node cannot be reached",
                 "plug the master in again; in a container, give it the node"}};
    }
    Findings findings;
    CheckPermission(*node, findings);
    CheckHolders(*node, findings);
    if (findings.empty()) {
        findings.push_back({Mark::Ok, tty.node,
                            "master, serial number " + Printable(tty.serial) + ", " +
                                PermissionText(*node) +
                                (host.DaemonHasOpen(tty) ? ", open by TavrikDaemon" : ""),
                            ""});
    }
    return findings;
}

void TtyCheck::CheckPermission(const struct stat& node, Findings& findings) const {
    if (!host.account) {
        findings.push_back(
            {Mark::Unknown, tty.node,
             "master, " + PermissionText(node) + "; the user for the service is not there yet",
             "install the package tavrikdaemon, or start TavrikDaemon"});
    } else if (!host.account->MayReadAndWrite(node)) {
        findings.push_back({Mark::Wrong, tty.node,
                            "master, but user " + host.account->Name() +
                                " may not open it: " + PermissionText(node),
                            "install the udev rule of the package tavrikdaemon, then plug the "
                            "master in again"});
    }
}

void TtyCheck::CheckHolders(const struct stat& node, Findings& findings) const {
    for (const Process& holder : host.processes.HoldersOfDevice(node.st_rdev)) {
        if (holder.name != kDaemonName && !IsSimulator(holder, node)) {
            findings.push_back({Mark::Wrong, tty.node,
                                "master, but " + holder.Text() + " has it open too",
                                "end it: it takes the master's answers away"});
        }
    }
    if (!host.processes.SeesAll()) {
        findings.push_back({Mark::Unknown, tty.node, "master; who has it open, only root can see",
                            "run the doctor as root"});
    } else if (findings.empty() && host.daemon && !host.DaemonHasOpen(tty)) {
        findings.push_back(
            {Mark::Wrong, tty.node,
             "master, but TavrikDaemon has not opened it, or has given it up",
             "look at the master's power, then plug it in again; or: " + host.StartCommand()});
    }
}

}  // namespace tavrikctl
