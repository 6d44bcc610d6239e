#pragma once

#include <chrono>
#include <string>

namespace tavrikctl {

/// Where a daemon serves.
struct Endpoint {
    std::string host = "127.0.0.1";
    unsigned port = 44221;
    std::chrono::milliseconds timeout = std::chrono::seconds(10);  ///< of one call

    /// "HOST:PORT", an IPv6 address in brackets.
    std::string Address() const {
        const bool isBare = host.find(':') != std::string::npos && !host.starts_with('[');
        return (isBare ? "[" + host + "]" : host) + ":" + std::to_string(port);
    }
};

}  // namespace tavrikctl
