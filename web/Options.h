#pragma once

#include <span>
#include <string>

#include "web/HttpServer.h"
#include "web/Site.h"

namespace tavrik {

struct Options {
    ListenAddress listen;
    SiteOptions site;
    bool showCode = false;
    std::string help;  ///< printed instead of anything else, unless empty
};

/// @throws Failure (Usage)
Options ParseOptions(int argc, const char* const* argv);

/// Where a running tavrikweb that listens on `port` leaves the code for control: in the folder that
/// the service manager gives, or in that of the user's session.
std::string CodeFile(std::uint16_t port);

/// The code of the tavrikweb on this machine that listens on `port`.
/// @throws Failure (Failed) when there is none
std::string ReadCode(std::uint16_t port);

}  // namespace tavrik
