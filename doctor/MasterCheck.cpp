#include "doctor/MasterCheck.h"

#include <algorithm>

namespace tavrik {

namespace {
constexpr const char* kMasters = "masters";
}

Findings MasterCheck::Run() const {
    const std::size_t attached = AttachedCount();
    if (attached == 0 && listed.value_or(0) > 0) {
        return {{Mark::Unknown, kMasters,
                 "none is attached according to udev, but grippers are listed",
                 "run as root, in the container if TavrikDaemon runs in one: tavrikctl doctor"}};
    }
    if (attached == 0) {
        return {{Mark::Wrong, kMasters, "no master is attached, according to udev",
                 "check the USB cable and the master's power; see: dmesg"}};
    }
    return {Compare(attached)};
}

bool MasterCheck::IsCutOff() const {
    return AttachedCount() > 0 && OpenedCount() == 0;
}

Finding MasterCheck::Compare(std::size_t attached) const {
    const auto opened = OpenedCount();
    std::string text = std::to_string(attached) + " attached";
    if (opened) {
        text += ", " + std::to_string(*opened) + " opened";
    }
    if (!listed) {
        return {Mark::Ok, kMasters, text, ""};
    }
    text += ", " + std::to_string(*listed) + (*listed == 1 ? " gripper" : " grippers") + " listed";
    if (opened && *opened > *listed) {
        return {Mark::Wrong, kMasters, text + ": a device string is empty or an ID is wrong",
                "check the gripper's cable and power, then replug its master"};
    }
    if (opened && *opened < *listed) {
        return {Mark::Wrong, kMasters, text + ": the data of a gripper are stale",
                "replug its master"};
    }
    if (!opened && attached > *listed) {
        return {Mark::Unknown, kMasters, text + "; only root can see which are open",
                "run as root: tavrikctl doctor"};
    }
    return {Mark::Ok, kMasters, text, ""};
}

std::size_t MasterCheck::AttachedCount() const {
    return static_cast<std::size_t>(std::count_if(
        host.ttys.begin(), host.ttys.end(), [](const UsbTty& tty) { return tty.IsMaster(); }));
}

std::optional<std::size_t> MasterCheck::OpenedCount() const {
    if (!host.daemon || !host.processes.Sees(host.daemon->pid)) {
        return std::nullopt;
    }
    return static_cast<std::size_t>(std::count_if(
        host.ttys.begin(), host.ttys.end(),
        [this](const UsbTty& tty) { return tty.IsMaster() && host.DaemonHasOpen(tty); }));
}

}  // namespace tavrik
