#include "doctor/ModemManagerCheck.h"

#include <algorithm>

namespace tavrik {

Findings ModemManagerCheck::Run() const {
    constexpr const char* kSubject = "modems";
    const auto manager = host.processes.Find("ModemManager");
    if (!manager && !host.processes.SeesAllNames()) {
        return {{Mark::Unknown, kSubject, "only root can see whether ModemManager runs",
                 "run as root, where /proc shows all processes: tavrikctl doctor"}};
    }
    if (!manager) {
        return {{Mark::Ok, kSubject, "ModemManager is not running", ""}};
    }
    const auto isMaster = [](const UsbTty& tty) { return tty.IsMaster(); };
    if (std::none_of(host.ttys.begin(), host.ttys.end(), isMaster)) {
        return {{Mark::Unknown, kSubject,
                 manager->Text() + " is running; attach a master to see whether it ignores it",
                 ""}};
    }
    const auto asked = std::find_if(host.ttys.begin(), host.ttys.end(), [](const UsbTty& tty) {
        return tty.IsMaster() && !tty.modemManagerIgnores;
    });
    if (asked == host.ttys.end()) {
        return {{Mark::Ok, kSubject, manager->Text() + " is running and ignores the masters", ""}};
    }
    return {{Mark::Wrong, kSubject, manager->Text() + " may talk to " + asked->node,
             "install the package's udev rule (ID_MM_DEVICE_IGNORE), then replug it"}};
}

}  // namespace tavrik
