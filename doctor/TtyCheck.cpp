#include "doctor/TtyCheck.h"

#include <sys/xattr.h>

#include <algorithm>

namespace tavrik {

namespace {

/// pellix-sim keeps both ends of the pseudo-terminals that stand for ttys: it is the master.
bool IsSimulator(const Process& process, const struct stat& node) {
    return process.name == "pellix-sim" && IsPseudoTerminal(node.st_rdev);
}

bool HasAccessList(const std::string& path) {
    return getxattr(path.c_str(), "system.posix_acl_access", nullptr, 0) > 0;
}

}  // namespace

Findings TtyCheck::Run() const {
    const std::string mismatch = tty.Mismatch();
    if (!mismatch.empty()) {
        return {{Mark::Unknown, tty.node, "not a master: " + mismatch, ""}};
    }
    const auto node = StatusOfNode(tty.node);
    if (!node) {
        return {{Mark::Wrong, tty.node,
                 "udev reports a master here, but the node is not accessible",
                 "replug the master; in a container, pass the node into it"}};
    }
    if (const auto tap = Tap(*node)) {
        return {{Mark::Ok, tty.node, "master, tapped by " + tap->Text() + " for TavrikDaemon", ""}};
    }
    Findings findings;
    CheckPermission(*node, findings);
    CheckHolders(*node, findings);
    if (findings.empty()) {
        findings.push_back({Mark::Ok, tty.node,
                            "master, serial " + tty.serial + ", " + PermissionText(*node) +
                                (host.DaemonHasOpen(tty) ? ", open" : ""),
                            ""});
    }
    return findings;
}

std::optional<Process> TtyCheck::Tap(const struct stat& node) const {
    if (!host.DaemonIsBehindSimulator()) {
        return std::nullopt;
    }
    const auto holders = host.processes.HoldersOfDevice(node);
    const auto tap = std::find_if(holders.begin(), holders.end(), [this](const Process& holder) {
        return holder.pid == host.daemon->parent;
    });
    return tap == holders.end() ? std::nullopt : std::optional(*tap);
}

void TtyCheck::CheckPermission(const struct stat& node, Findings& findings) const {
    if (host.DaemonHasOpen(tty)) {
        return;
    }
    if (!host.account) {
        findings.push_back(
            {Mark::Unknown, tty.node,
             "master, " + PermissionText(node) + "; the user of the service does not exist yet",
             "install the package tavrikdaemon, or start TavrikDaemon"});
    } else if (!host.account->MayReadAndWrite(node)) {
        findings.push_back(ForbiddenTo(host.account->Name(), node));
    }
}

Finding TtyCheck::ForbiddenTo(const std::string& user, const struct stat& node) const {
    if (HasAccessList(tty.node)) {
        return {Mark::Unknown, tty.node,
                "master, " + PermissionText(node) + "; its access list must allow user " + user,
                "see: getfacl " + tty.node};
    }
    return {Mark::Wrong, tty.node,
            "master, but user " + user + " may not open it: " + PermissionText(node),
            "install the package's udev rule, then plug the master in again"};
}

void TtyCheck::CheckHolders(const struct stat& node, Findings& findings) const {
    for (const Process& holder : host.processes.HoldersOfDevice(node)) {
        if (holder.name != kDaemonName && !IsSimulator(holder, node)) {
            findings.push_back({Mark::Wrong, tty.node,
                                "master, but " + holder.Text() + " has it open too",
                                "stop it: it takes answers that TavrikDaemon needs"});
        }
    }
    const bool isDaemonSeen = host.daemon && host.processes.Sees(host.daemon->pid);
    if (findings.empty() && isDaemonSeen && !host.DaemonHasOpen(tty)) {
        findings.push_back(
            {Mark::Wrong, tty.node,
             "master, but TavrikDaemon has not opened it or has given up on it",
             "check the master's power, then replug it; or: " + host.StartCommand()});
    }
    if (!host.processes.SeesAll()) {
        findings.push_back(
            {Mark::Unknown, tty.node,
             "master, " + PermissionText(node) + "; only root can see who has it open",
             "run as root: tavrikctl doctor"});
    }
}

}  // namespace tavrik
