#pragma once

#include <string>

namespace tavrik {

/// Whether `host`, a name or an address, is the machine on which this runs. May ask a name server.
bool IsThisMachine(const std::string& host);

}  // namespace tavrik
