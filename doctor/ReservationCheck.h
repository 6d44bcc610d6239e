#pragma once

#include <string>

#include "doctor/Finding.h"

namespace tavrik {

/// Whether outgoing connections of other programs are kept from taking the daemon's ports.
class ReservationCheck {
public:
    /// @param settings where the kernel shows the settings of the network
    explicit ReservationCheck(std::string settings = "/proc/sys/net/ipv4/")
        : folder(std::move(settings)) {}
    Findings Run() const;

private:
    std::string Setting(const std::string& name) const;

    std::string folder;
};

}  // namespace tavrik
