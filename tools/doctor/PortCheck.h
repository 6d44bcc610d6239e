#pragma once

#include <string>

#include "tools/Daemon.h"
#include "tools/doctor/Check.h"
#include "tools/doctor/Host.h"

namespace tavrikctl {

/// Whether the daemon serves one of its ports, and who has the port if it does not.
class PortCheck : public Check {
public:
    /// @param machine null for a daemon on another machine
    PortCheck(const Endpoint& server, const Host* machine) : endpoint(server), host(machine) {}
    Findings Run() override;

    /// After Run().
    bool Answers() const { return !version.empty(); }
    /// What GetVersion answered.
    const std::string& Version() const { return version; }

private:
    Finding Ask(const std::string& holder);
    Finding WithoutListener() const;
    std::string RemedyForListener(const std::string& holder) const;

    Endpoint endpoint;
    const Host* host;
    std::string version;
};

}  // namespace tavrikctl
