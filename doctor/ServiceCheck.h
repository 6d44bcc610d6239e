#pragma once

#include "doctor/Finding.h"
#include "doctor/Host.h"

namespace tavrik {

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

}  // namespace tavrik
