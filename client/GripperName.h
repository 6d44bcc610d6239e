#pragma once

#include <string>
#include <vector>

namespace tavrik {

/// The one of `grippers` that is `name`, or else the only one in which `name` is found, in either
/// case of ASCII letters; what ends in the serial number has to be its end. Two of one name are
/// none: the daemon would take the first. An empty `name` is found in all.
/// @param exact parts do not count: while the gripper "HVA" is unplugged, no "HVA SN:1" is it
/// @throws Failure (NoGripper)
std::string MatchGripper(const std::vector<std::string>& grippers, const std::string& name,
                         bool exact = false);

}  // namespace tavrik
