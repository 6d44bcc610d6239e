#pragma once

#include "tools/doctor/Check.h"
#include "tools/doctor/Host.h"

namespace tavrikctl {

/// Whether a modem manager talks to the masters.
class ModemManagerCheck : public Check {
public:
    explicit ModemManagerCheck(const Host& machine) : host(machine) {}
    Findings Run() override;

private:
    const Host& host;
};

}  // namespace tavrikctl
