#pragma once

#include <sys/stat.h>

#include <optional>

#include "doctor/Finding.h"
#include "doctor/Host.h"

namespace tavrik {

/// Whether a tty is a master's, and nothing keeps the daemon from it.
class TtyCheck {
public:
    TtyCheck(const Host& machine, const UsbTty& device) : host(machine), tty(device) {}
    Findings Run() const;

private:
    /// The program that has the daemon started and the tty open in its place: pellix-sim, tapping.
    std::optional<Process> Tap(const struct stat& node) const;
    void CheckPermission(const struct stat& node, Findings& findings) const;
    void CheckHolders(const struct stat& node, Findings& findings) const;
    Finding ForbiddenTo(const std::string& user, const struct stat& node) const;

    const Host& host;
    const UsbTty& tty;
};

}  // namespace tavrik
