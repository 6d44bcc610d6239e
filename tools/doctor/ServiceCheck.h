#pragma once

#include "tools/doctor/Finding.h"
#include "tools/doctor/Host.h"

namespace tavrikctl {

/// Whether the daemon runs, as a service or otherwise, and whom the service hears.
class ServiceCheck {
public:
    explicit ServiceCheck(const Host& machine) : host(machine) {}
    Findings Run() const;

private:
    Finding Running() const;
    Finding Restricted() const;
    Finding Hidden() const;
    Finding Stopped() const;

    const Host& host;
};

}  // namespace tavrikctl
