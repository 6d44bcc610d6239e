#pragma once

#include <functional>
#include <nlohmann/json_fwd.hpp>
#include <string>

#include "client/Gripper.h"
#include "client/GripperSettings.h"

namespace tavrik {

// All settings of a gripper for the page. As with "tavrikctl settings", the gripper must be at
// rest. Each takes seconds, and throws what SettingsTransfer throws.

/// @return "settings" for the tables of the page, and "file", the content of a settings file
nlohmann::ordered_json ReadPageSettings(const Gripper& gripper);

/// @param name of the file that `wanted` is from, for messages
/// @return as ReadPageSettings(), and "differences", each with name, from and to
/// @throws Failure (NotPossible) also if the file is from another model
nlohmann::ordered_json ComparePageSettings(const Gripper& gripper, const GripperSettings& wanted,
                                           const std::string& name);

/// Writes what differs and reads everything back.
/// @param check called before each write; what it throws ends the writing
/// @param log called with each change and its result
/// @return as ComparePageSettings(), with what still differs
nlohmann::ordered_json RestorePageSettings(const Gripper& gripper, const GripperSettings& wanted,
                                           const std::string& name,
                                           const std::function<void()>& check,
                                           const std::function<void(const std::string&)>& log);

}  // namespace tavrik
