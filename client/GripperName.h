#pragma once

#include <string>
#include <vector>

namespace tavrik {

/// The gripper that `name` means: the one with exactly this name, otherwise the only one that
/// `name` matches, ignoring the case of ASCII letters. It may be the model, the serial number, or a
/// part of at least four characters; a part that ends in the serial number must be its end. Numbers
/// of up to three digits and names that two grippers share match nothing: the wrong gripper could
/// move. An empty `name` matches every gripper.
/// @param grippers device strings
/// @param exact only the whole name matches: "HVA" does not mean "HVA SN:1" while "HVA" is
/// unplugged
/// @throws Failure (NoGripper)
std::string MatchGripper(const std::vector<std::string>& grippers, const std::string& name,
                         bool exact = false);

}  // namespace tavrik
