#pragma once

#include <chrono>
#include <string>

#include "common/Ports.h"

namespace tavrik {

/// Where a daemon serves.
struct Endpoint {
    std::string host = "127.0.0.1";
    unsigned port = kPorts[0];
    std::chrono::milliseconds timeout = std::chrono::seconds(10);  ///< of one call

    /// "HOST:PORT", an IPv6 address in brackets.
    std::string Address() const;

    /// The end of a tavrikctl command for this daemon, such as " --host HOST --port PORT"; empty
    /// for the default.
    std::string Options() const;
};

}  // namespace tavrik
