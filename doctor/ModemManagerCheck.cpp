#include "doctor/ModemManagerCheck.h"

#include <algorithm>

namespace tavrik {

Findings ModemManagerCheck::Run() const {
    constexpr const char* kSubject = "modems";
    const auto manager = host.processes.Find("ModemManager");
    if (!manager && !host.processes.SeesAllNames()) {
        return {{Mark::Unknown, kSubject, "whether a ModemManager runs, only root can see here",
                 "run the doctor as root, where /proc has all processes"}};
    }
    if (!manager) {
        return {{Mark::Ok, kSubject, "no ModemManager runs that could talk to a master", ""}};
    }
    const auto isMaster = [](const UsbTty& tty) { return tty.IsMaster(); };
    if (std::none_of(host.ttys.begin(), host.ttys.end(), isMaster)) {
        return {{Mark::Unknown, kSubject,
                 manager->Text() + " runs; with a master, the doctor tells if it keeps off", ""}};
    }
    const auto asked = std::find_if(host.ttys.begin(), host.ttys.end(), [](const UsbTty& tty) {
        return tty.IsMaster() && !tty.modemManagerIgnores;
    });
    if (asked == host.ttys.end()) {
        return {{Mark::Ok, kSubject, manager->Text() + " runs, and keeps off the masters", ""}};
    }
    return {{Mark::Wrong, kSubject, manager->Text() + " may talk to " + asked->node,
             "install the package's udev rule (ID_MM_DEVICE_IGNORE), then replug it"}};
}

}  // namespace tavrik
