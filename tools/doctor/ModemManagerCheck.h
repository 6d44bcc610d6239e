#pragma once

#include "tools/doctor/Finding.h"
#include "tools/doctor/Host.h"

namespace tavrikctl {

/// Whether a modem manager talks to the masters.
class ModemManagerCheck {
public:
    explicit ModemManagerCheck(const Host& machine) : host(machine) {}
    Findings Run() const;

private:
    const Host& host;
};

}  // namespace tavrikctl
