#pragma once

#include <string>
#include <vector>

namespace tavrikctl {

/// The one of `grippers` that is `name`, or else the only one in which `name` is found, in either
/// case of ASCII letters; what ends in the serial number has to be its end. Two of one name are
/// none: the daemon would take the first.
/// @throws Failure (NoGripper)
std::string MatchGripper(const std::vector<std::string>& grippers, const std::string& name);

}  // namespace tavrikctl
