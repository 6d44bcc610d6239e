#include "doctor/Masters.h"

#include <sys/xattr.h>

#include <algorithm>

#include "common/Udev.h"
#include "common/UsbIdentity.h"
#include "doctor/Host.h"

namespace tavrik {

namespace {

std::string TextOrEmpty(const char* text) {
    return text == nullptr ? "" : text;
}

bool HasIgnoreRule(udev_device* device) {
    return TextOrEmpty(udev_device_get_property_value(device, "ID_MM_DEVICE_IGNORE")) == "1";
}

UsbTty Describe(udev_device* tty, udev_device* usb) {
    const auto attribute = [usb](const char* name) {
        return TextOrEmpty(udev_device_get_sysattr_value(usb, name));
    };
    return {TextOrEmpty(udev_device_get_devnode(tty)),
            attribute("idVendor"),
            attribute("idProduct"),
            attribute("manufacturer"),
            attribute("product"),
            attribute("serial"),
            HasIgnoreRule(tty) || HasIgnoreRule(usb)};
}

/// Adds to `text` how `value` differs from the one or two that are wanted.
void Compare(const std::string& name, const std::string& value,
             const std::vector<std::string>& wanted, std::string& text) {
    if (std::ranges::find(wanted, value) != wanted.end()) {
        return;
    }
    text += (text.empty() ? "" : "; ") + name +
            (value.empty() ? " is missing" : " is \"" + value + "\"") + ", not \"" +
            wanted.front() + "\"" + (wanted.size() > 1 ? " or \"" + wanted.back() + "\"" : "");
}

/// pellix-sim keeps both ends of the pseudo-terminals that stand for ttys: it is the master.
bool IsSimulator(const Process& process, const struct stat& node) {
    return process.name == "pellix-sim" && IsPseudoTerminal(node.st_rdev);
}

/// The program that started the daemon and has the tty open in its place: pellix-sim, tapping.
std::optional<Process> FindTap(const Host& host, const struct stat& node) {
    if (host.DaemonRunsInSimulator()) {
        for (const Process& holder : host.processes.HoldersOfDevice(node)) {
            if (holder.pid == host.daemon->parent) {
                return holder;
            }
        }
    }
    return std::nullopt;
}

void CheckPermission(const Host& host, const UsbTty& tty, const struct stat& node,
                     Findings& findings) {
    const std::string permission = PermissionText(node);
    if (host.DaemonHasOpen(tty) || (host.account && host.account->MayReadAndWrite(node))) {
        return;
    }
    if (!host.account) {
        findings.push_back(
            {Mark::Unknown, tty.node,
             "master, " + permission + "; the user of the service does not exist yet",
             kInstallOrStart});
    } else if (getxattr(tty.node.c_str(), "system.posix_acl_access", nullptr, 0) > 0) {
        findings.push_back(
            {Mark::Unknown, tty.node,
             "master, " + permission + "; its access list must allow user " + host.account->Name(),
             "see: getfacl " + tty.node});
    } else {
        findings.push_back(
            {Mark::Wrong, tty.node,
             "master, but user " + host.account->Name() + " may not open it: " + permission,
             "install the udev rule: apt install ./tavrikdaemon_*.deb; then replug the master"});
    }
}

void CheckHolders(const Host& host, const UsbTty& tty, const struct stat& node,
                  Findings& findings) {
    for (const Process& holder : host.processes.HoldersOfDevice(node)) {
        if (holder.name != kDaemonName && !IsSimulator(holder, node)) {
            findings.push_back(
                {Mark::Wrong, tty.node, "master, but " + holder.Text() + " has it open too",
                 "it takes answers that TavrikDaemon needs: kill " + std::to_string(holder.pid)});
        }
    }
    const bool isDaemonSeen = host.daemon && host.processes.CanReadOpenFiles(host.daemon->pid);
    if (findings.empty() && isDaemonSeen && !host.DaemonHasOpen(tty)) {
        findings.push_back(
            {Mark::Wrong, tty.node,
             "master, but TavrikDaemon has not opened it or has given up on it",
             "check the master's power, then replug it; or: " + host.StartCommand()});
    }
    if (!host.processes.CanReadAllOpenFiles()) {
        findings.push_back(
            {Mark::Unknown, tty.node,
             "master, " + PermissionText(node) + "; only root can see who has it open",
             "run as root: tavrikctl doctor"});
    }
}

std::size_t CountAttached(const Host& host) {
    return static_cast<std::size_t>(std::ranges::count_if(host.ttys, &UsbTty::IsMaster));
}

/// How many masters the daemon has opened; nothing if that cannot be seen.
std::optional<std::size_t> CountOpened(const Host& host) {
    if (!host.daemon || !host.processes.CanReadOpenFiles(host.daemon->pid)) {
        return std::nullopt;
    }
    return static_cast<std::size_t>(std::ranges::count_if(
        host.ttys, [&](const UsbTty& tty) { return tty.IsMaster() && host.DaemonHasOpen(tty); }));
}

}  // namespace

std::string UsbTty::Mismatch() const {
    std::string text;
    Compare("vendor", vendor, {kUsbVendorId}, text);
    Compare("product id", productId, {kUsbProductId}, text);
    Compare("manufacturer", manufacturer, {kUsbManufacturer}, text);
    Compare("product", product, {"PELLIX", "MARROK-7"}, text);
    return text;
}

std::vector<UsbTty> ListUsbTtys() {
    std::vector<UsbTty> ttys;
    const UdevContext context(udev_new());
    const UdevEnumerate scan(udev_enumerate_new(context.get()));
    udev_enumerate_add_match_subsystem(scan.get(), "tty");
    udev_enumerate_scan_devices(scan.get());
    for (udev_list_entry* entry = udev_enumerate_get_list_entry(scan.get()); entry != nullptr;
         entry = udev_list_entry_get_next(entry)) {
        const UdevDevice tty(
            udev_device_new_from_syspath(context.get(), udev_list_entry_get_name(entry)));
        udev_device* const usb = tty == nullptr ? nullptr
                                                : udev_device_get_parent_with_subsystem_devtype(
                                                      tty.get(), "usb", "usb_device");
        if (usb != nullptr) {
            ttys.push_back(Describe(tty.get(), usb));
        }
    }
    return ttys;
}

Findings CheckTty(const Host& host, const UsbTty& tty) {
    if (!tty.IsMaster()) {
        return {{Mark::Unknown, tty.node, "not a master: " + tty.Mismatch()}};
    }
    const auto node = StatusOfNode(tty.node);
    if (!node) {
        return {{Mark::Wrong, tty.node,
                 "udev reports a master here, but the node is not accessible",
                 "replug the master; in a container, pass the node into it"}};
    }
    if (const auto tap = FindTap(host, *node)) {
        return {{Mark::Ok, tty.node, "master, tapped by " + tap->Text() + " for TavrikDaemon"}};
    }
    Findings findings;
    CheckPermission(host, tty, *node, findings);
    CheckHolders(host, tty, *node, findings);
    if (findings.empty()) {
        findings.push_back({Mark::Ok, tty.node,
                            "master, serial " + tty.serial + ", " + PermissionText(*node) +
                                (host.DaemonHasOpen(tty) ? ", open" : "")});
    }
    return findings;
}

Finding CheckModemManager(const Host& host) {
    constexpr const char* kSubject = "modems";
    const auto manager = host.processes.Find("ModemManager");
    if (!manager && !host.processes.ListsAllProcesses()) {
        return {Mark::Unknown, kSubject, "only root can see whether ModemManager runs",
                "run as root, where /proc shows all processes: tavrikctl doctor"};
    }
    if (!manager) {
        return {Mark::Ok, kSubject, "ModemManager is not running"};
    }
    if (CountAttached(host) == 0) {
        return {Mark::Unknown, kSubject,
                manager->Text() + " is running; attach a master to see whether it ignores it"};
    }
    const auto exposed = std::ranges::find_if(
        host.ttys, [](const UsbTty& tty) { return tty.IsMaster() && !tty.modemManagerIgnores; });
    if (exposed == host.ttys.end()) {
        return {Mark::Ok, kSubject, manager->Text() + " is running and ignores the masters"};
    }
    return {Mark::Wrong, kSubject, manager->Text() + " may talk to " + exposed->node,
            "install the udev rule that sets ID_MM_DEVICE_IGNORE: apt install "
            "./tavrikdaemon_*.deb; then replug the master"};
}

Finding CheckMasters(const Host& host, std::optional<std::size_t> listed) {
    constexpr const char* kSubject = "masters";
    const std::size_t attached = CountAttached(host);
    if (attached == 0 && listed.value_or(0) > 0) {
        return {Mark::Unknown, kSubject,
                "none is attached according to udev, but grippers are listed",
                "run as root, in the container if TavrikDaemon runs in one: tavrikctl doctor"};
    }
    if (attached == 0) {
        return {Mark::Wrong, kSubject, "no master is attached, according to udev",
                "check the USB cable and the master's power; see: dmesg"};
    }
    const auto opened = CountOpened(host);
    std::string text = std::to_string(attached) + " attached";
    if (opened) {
        text += ", " + std::to_string(*opened) + " opened";
    }
    if (!listed) {
        return {Mark::Ok, kSubject, text};
    }
    text += ", " + std::to_string(*listed) + (*listed == 1 ? " gripper" : " grippers") + " listed";
    if (opened && *opened > *listed) {
        return {Mark::Wrong, kSubject, text + ": a device string is empty or an ID is wrong",
                "check the gripper's cable and power, then replug its master"};
    }
    if (opened && *opened < *listed) {
        return {Mark::Wrong, kSubject, text + ": the data of a gripper are stale",
                "replug its master"};
    }
    if (!opened && attached > *listed) {
        return {Mark::Unknown, kSubject, text + "; only root can see which are open",
                "run as root: tavrikctl doctor"};
    }
    return {Mark::Ok, kSubject, text};
}

bool AreGrippersStale(const Host& host) {
    return CountAttached(host) > 0 && CountOpened(host) == 0;
}

}  // namespace tavrik
