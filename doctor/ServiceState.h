#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

namespace tavrik {

inline constexpr const char* kServiceName = "tavrikdaemon.service";
inline constexpr const char* kDaemonName = "TavrikDaemon";  ///< of its process

/// What systemd says of the daemon's service.
struct ServiceState {
    std::string load;     ///< "loaded", "not-found", "masked", ...
    std::string active;   ///< "active", "failed", ...
    std::string sub;      ///< "running", "auto-restart", ...
    std::string result;   ///< "success", "exit-code", "start-limit-hit", ...
    std::string user;     ///< empty for root
    std::string mainPid;  ///< "0" if none runs
    std::string group;    ///< the control group of its processes; empty if none runs
    std::string denied;   ///< addresses that it does not hear, but for those allowed; empty if none
    std::string allowed;  ///< see `denied`

    bool IsInstalled() const { return load == "loaded"; }

    /// Whether process `pid` is one of the service's: the main one, or started by that.
    bool Has(pid_t pid) const;

    /// Nothing where there is no systemd.
    static std::optional<ServiceState> Read();
};

}  // namespace tavrik
