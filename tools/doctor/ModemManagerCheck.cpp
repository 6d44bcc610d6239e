#include "tools/doctor/ModemManagerCheck.h"

#include <algorithm>

namespace tavrikctl {

Findings ModemManagerCheck::Run() {
    constexpr const char* kSubject = "modems";
    const auto manager = host.processes.Find("ModemManager");
    if (!manager) {
        return {{Mark::Ok, kSubject, "no ModemManager runs that could talk to a master", ""}};
    }
    const auto asked = std::find_if(host.ttys.begin(), host.ttys.end(), [](const UsbTty& tty) {
        return tty.IsMaster() && !tty.modemManagerIgnores;
    });
    if (asked == host.ttys.end()) {
        return {{Mark::Ok, kSubject, manager->Text() + " runs, and keeps off the masters", ""}};
    }
    return {{Mark::Wrong, kSubject, manager->Text() + " may talk to the master at " + asked->node,
             "install the udev rule of the package tavrikdaemon (ID_MM_DEVICE_IGNORE=1), then plug "
             "the master in again"}};
}

}  // namespace tavrikctl
