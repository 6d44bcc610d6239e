#pragma once

#include <string>

#include "tools/doctor/Doctor.h"

namespace tavrikctl {

/// Writes what support needs to `path`, a tar.gz, which only its owner can read if it is new: the
/// report as text and JSON, versions; if the daemon's machine is this one, the service's state and
/// unit and the last lines of its log. No environment, no other program's log.
/// @throws Failure (Failed)
void WriteBundle(const std::string& path, const Doctor& doctor);

}  // namespace tavrikctl
