#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

#include "doctor/Finding.h"

namespace tavrik {

struct Host;

inline constexpr const char* kServiceName = "tavrikdaemon.service";
inline constexpr const char* kDaemonName = "TavrikDaemon";  ///< of its process

// Remedies where the service is missing.
inline constexpr const char* kStartByHand = "start it: TavrikDaemon";
inline constexpr const char* kInstallOrStart =
    "install it: apt install ./tavrikdaemon_*.deb; or start it by hand: TavrikDaemon";

/// What systemd says of the daemon's service.
struct ServiceState {
    std::string load;     ///< "loaded", "not-found", "masked", ...
    std::string active;   ///< "active", "failed", ...
    std::string sub;      ///< "running", "auto-restart", ...
    std::string result;   ///< "success", "exit-code", "start-limit-hit", ...
    std::string user;     ///< empty for root
    std::string mainPid;  ///< "0" if it does not run
    std::string group;    ///< control group of its processes; empty if it does not run
    std::string denied;   ///< addresses that may not connect, except `allowed`; empty if none
    std::string allowed;  ///< see `denied`

    bool IsInstalled() const { return load == "loaded"; }

    /// Whether process `pid` belongs to the service: the main process or a child of it.
    bool Has(pid_t pid) const;

    /// Nothing where there is no systemd.
    static std::optional<ServiceState> Read();
};

/// Whether the daemon runs, as a service or otherwise, and who may connect to the service.
Findings CheckService(const Host& host);

}  // namespace tavrik
