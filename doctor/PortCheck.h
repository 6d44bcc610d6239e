#pragma once

#include <optional>
#include <string>

#include "client/Daemon.h"
#include "client/Failure.h"
#include "doctor/Finding.h"
#include "doctor/Host.h"
#include "doctor/TcpSocket.h"

namespace tavrik {

/// Whether the daemon serves one of its ports, and who has the port if it does not.
class PortCheck {
public:
    /// @param machine null for a daemon on another machine
    PortCheck(const Endpoint& server, const Host* machine);
    Findings Run();

    /// After Run(): what GetVersion answered, if it did.
    const std::optional<std::string>& Version() const { return version; }

private:
    Finding Ask(const TcpSocket* listener);
    Finding Judge(const std::string& listens) const;
    Finding Unanswered(const TcpSocket* listener, const Failure& failure) const;
    Finding WithoutListener(const TcpSocket* socket) const;
    std::string HolderText(const TcpSocket& socket) const;
    std::string RemedyForHolder(const TcpSocket& socket) const;

    Endpoint endpoint;
    const Host* host;
    std::string subject;
    std::optional<std::string> version;
};

}  // namespace tavrik
