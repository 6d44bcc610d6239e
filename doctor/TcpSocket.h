#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tavrik {

/// A TCP socket of this host's network, as the kernel lists it.
struct TcpSocket {
    unsigned state;
    uid_t user;
    std::uint64_t inode;  ///< 0 for one that no process has any more

    bool IsListening() const;
};

/// All that keep others from this local port of IPv4: the listening ones first, then those that a
/// process has.
/// @param tables where the kernel lists the sockets
/// @return nothing where they cannot be read
std::optional<std::vector<TcpSocket>> ListTcpSockets(unsigned port,
                                                     const std::string& tables = "/proc/net/");

}  // namespace tavrik
