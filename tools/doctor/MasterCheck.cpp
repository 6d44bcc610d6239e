#include "tools/doctor/MasterCheck.h"

#include <algorithm>

namespace tavrikctl {

Findings MasterCheck::Run() {
    constexpr const char* kSubject = "masters";
    const auto attached = std::count_if(host.ttys.begin(), host.ttys.end(),
                                        [](const UsbTty& tty) { return tty.IsMaster(); });
    if (attached == 0) {
        return {{Mark::Wrong, kSubject, "no master is attached, as far as udev knows",
                 "look at the USB cable and the master's power; dmesg tells what was plugged in"}};
    }
    std::string text = std::to_string(attached) + " attached";
    if (host.daemon && host.processes.Sees(host.daemon->pid)) {
        text += ", " + std::to_string(OpenedCount()) + " opened by TavrikDaemon";
    }
    if (listed) {
        text +=
            ", " + std::to_string(*listed) + (*listed == 1 ? " gripper" : " grippers") + " listed";
    }
    if (listed && OpenedCount() > *listed) {
        return {{Mark::Wrong, kSubject, text + ": a gripper has no name",
                 "look at the gripper's cable and power; if both are well, plug its master in "
                 "again"}};
    }
    return {{Mark::Ok, kSubject, text, ""}};
}

std::size_t MasterCheck::OpenedCount() const {
    return static_cast<std::size_t>(std::count_if(
        host.ttys.begin(), host.ttys.end(),
        [this](const UsbTty& tty) { return tty.IsMaster() && host.DaemonHasOpen(tty); }));
}

}  // namespace tavrikctl
