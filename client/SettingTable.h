#pragma once

#include <span>
#include <string>
#include <string_view>
#include <xmlrpc-c/base.hpp>

namespace tavrik {

/// A setting of the gripper that can be read, set or both.
struct Setting {
    enum class Kind { Byte, Preset, Limit, Flag, Checksum };
    enum class Place { Gripper, Set, Led };  ///< what the setting belongs to

    std::string_view name;
    std::string_view getter;  ///< empty if it cannot be read
    std::string_view setter;  ///< empty if it cannot be set
    Kind kind;
    Place place;
    /// Of its parameter; 0 for the LED preset, which is part of the process output, and for the
    /// checksum, which has an index of its own.
    unsigned subindex = 0;
};

constexpr double kLimitSteps = 100;  ///< of a limit, per unit

std::span<const Setting> Settings();

/// @throws Failure (Usage)
const Setting& FindSetting(const std::string& name);

/// The models that support it, as in "HVA, MZD; read: all".
std::string SupportedModels(const Setting& setting);

/// The valid values in words, as in "0 to 255".
std::string ValueRange(const Setting& setting);

/// `text` as the parameter of the setter. The daemon does not check ranges, so this does.
/// @throws Failure (Usage)
xmlrpc_c::value ParseSetting(const Setting& setting, const std::string& text);

/// `text` as the gripper gets it and "get" shows it: limits are rounded to two decimals.
/// @throws Failure (Usage)
std::string SettingText(const Setting& setting, const std::string& text);

/// The number to send for a limit, so that the gripper gets the nearest hundredth: the daemon
/// truncates limit x 100 + 0.5, which alone would raise a negative limit.
double LimitToSend(double limit);

}  // namespace tavrik
