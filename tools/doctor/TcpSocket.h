#pragma once

#include <cstdint>
#include <vector>

namespace tavrikctl {

/// A TCP socket of this host's network, as the kernel lists it.
struct TcpSocket {
    unsigned state;
    std::uint64_t inode;  ///< 0 for one that no process has any more

    bool IsListening() const;
};

/// All with this local port, the listening ones first.
std::vector<TcpSocket> ListTcpSockets(unsigned port);

}  // namespace tavrikctl
