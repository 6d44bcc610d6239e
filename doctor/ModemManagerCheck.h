#pragma once

#include "doctor/Finding.h"
#include "doctor/Host.h"

namespace tavrik {

/// Whether a modem manager talks to the masters.
class ModemManagerCheck {
public:
    explicit ModemManagerCheck(const Host& machine) : host(machine) {}
    Findings Run() const;

private:
    const Host& host;
};

}  // namespace tavrik
