#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

#include "client/Endpoint.h"
#include "doctor/Finding.h"

namespace tavrik {

struct Host;

/// A TCP socket of this host's network, as the kernel lists it.
struct TcpSocket {
    unsigned state;
    uid_t user;
    std::uint64_t inode;  ///< 0 if no process has it open any more

    bool IsListening() const;
};

/// All sockets that occupy this local IPv4 port: the listening ones first, then those that a
/// process has open.
/// @param folder where the kernel lists the sockets
/// @return nothing if they cannot be read
std::optional<std::vector<TcpSocket>> ListTcpSockets(unsigned port,
                                                     const std::string& folder = "/proc/net/");

/// Whether `port` is in a list of the kernel's, such as "44221-44222,50000".
bool IsPortInList(unsigned port, const std::string& list);

struct PortResult {
    Finding finding;
    std::optional<std::string> version;  ///< the reply to GetVersion, if there was one
};

/// Whether the daemon serves the port of `endpoint`, and which program holds it otherwise.
/// @param host null for a daemon on another machine
/// @param stop ends a running call early
PortResult CheckPort(Endpoint endpoint, const Host* host, const std::stop_token& stop = {});

/// Whether the daemon's ports are reserved, so that no outgoing connection can take one.
/// @param folder where the kernel shows the settings of the network
Finding CheckReservation(const std::string& folder = "/proc/sys/net/ipv4/");

}  // namespace tavrik
