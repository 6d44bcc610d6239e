#pragma once

#include <sys/stat.h>

#include "tools/doctor/Finding.h"
#include "tools/doctor/Host.h"

namespace tavrikctl {

/// Whether a tty is a master's, and nothing keeps the daemon from it.
class TtyCheck {
public:
    TtyCheck(const Host& machine, const UsbTty& device) : host(machine), tty(device) {}
    Findings Run() const;

private:
    void CheckPermission(const struct stat& node, Findings& findings) const;
    void CheckHolders(const struct stat& node, Findings& findings) const;
    Finding ForbiddenTo(const std::string& user, const struct stat& node) const;

    const Host& host;
    const UsbTty& tty;
};

}  // namespace tavrikctl
