#include "doctor/ReservationCheck.h"

#include <algorithm>
#include <fstream>
#include <sstream>

#include "common/Ports.h"
#include "doctor/PortList.h"

namespace tavrik {

Findings ReservationCheck::Run() const {
    constexpr const char* kSubject = "port range";
    std::istringstream range(Setting("ip_local_port_range"));
    unsigned first = 0;
    unsigned last = 0;
    if (!(range >> first >> last)) {
        return {{Mark::Unknown, kSubject, "failed to read which ports outgoing connections may use",
                 ""}};
    }
    const std::string reserved = Setting("ip_local_reserved_ports");
    const PortList list(reserved);
    const bool isOpen = std::any_of(kPorts.begin(), kPorts.end(), [&](unsigned port) {
        return first <= port && port <= last && !list.Contains(port);
    });
    if (!isOpen) {
        return {{Mark::Ok, kSubject, "no outgoing connection can take the two ports", ""}};
    }
    return {
        {Mark::Warning, kSubject, "an outgoing connection may take a port: not reserved",
         "sysctl -w net.ipv4.ip_local_reserved_ports=" + reserved + (reserved.empty() ? "" : ",") +
             std::to_string(kPorts[0]) + "," + std::to_string(kPorts[1]) +
             " ; to keep this after a reboot, add both to the last file in sysctl.d that sets it"}};
}

std::string ReservationCheck::Setting(const std::string& name) const {
    std::ifstream file(folder + name);
    std::string line;
    std::getline(file, line);
    return line;
}

}  // namespace tavrik
