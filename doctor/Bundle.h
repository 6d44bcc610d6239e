#pragma once

#include <string>
#include <utility>
#include <vector>

#include "doctor/Doctor.h"

namespace tavrik {

/// Names and contents.
using BundleFiles = std::vector<std::pair<std::string, std::string>>;

/// Writes what support needs to `path`, a tar.gz that only its owner can read: `files`, which are
/// the report, and versions; if the daemon's machine is this one, also the service's state and
/// unit and the last lines of its log. No environment, no other program's log.
/// @throws Failure (Failed)
void WriteBundle(const std::string& path, const Doctor& doctor, BundleFiles files);

}  // namespace tavrik
