#pragma once

#include <functional>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>

#include "client/Gripper.h"
#include "client/GripperSettings.h"

namespace tavrik {

// All settings of a gripper for the page. As with "tavrikctl settings", the gripper must be at
// rest. Each takes seconds, and throws what SettingsTransfer throws.

/// Called with what is being done, such as "reading", and the part of it that is done, 0 to 1.
using PageProgress = std::function<void(std::string_view step, double part)>;

/// @return "settings" for the tables of the page, and "file", the content of a settings file
nlohmann::ordered_json ReadPageSettings(const Gripper& gripper, const PageProgress& progress);

/// @param name of the file that `wanted` is from, for messages
/// @return as ReadPageSettings(), and "differences", each with name, from, to and an empty result
/// @throws Failure (NotPossible) also if the file is from another model
nlohmann::ordered_json ComparePageSettings(const Gripper& gripper, const GripperSettings& wanted,
                                           const std::string& name, const PageProgress& progress);

/// Writes what differs and reads everything back.
/// @param check called before each write; what it throws ends the writing
/// @param log called with each change and its result
/// @return as ComparePageSettings(), with what still differs and its "result", in words
/// @throws Failure (Failed) if a write or reading back fails; it says how much was written
nlohmann::ordered_json RestorePageSettings(const Gripper& gripper, const GripperSettings& wanted,
                                           const std::string& name,
                                           const std::function<void()>& check,
                                           const std::function<void(const std::string&)>& log,
                                           const PageProgress& progress);

}  // namespace tavrik
