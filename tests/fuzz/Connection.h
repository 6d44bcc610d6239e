#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <cerrno>
#include <cstdint>

#include "tests/fuzz/FuzzTarget.h"

/// Connects to `port` of 127.0.0.1. Ends the process if nobody takes the connection.
/// @param patience how long a read may wait
/// @return the socket, which the caller closes
inline int ConnectTo(std::uint16_t port, const timeval& patience) {
    const int client = ::socket(AF_INET, SOCK_STREAM, 0);
    ::setsockopt(client, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    int result = 0;
    do {  // the fuzzer's timer signal interrupts the wait; Linux continues it
        result = ::connect(client, reinterpret_cast<const sockaddr*>(&address), sizeof address);
    } while (result != 0 && errno == EINTR);
    Require(result == 0, "the server takes connections");
    return client;
}
