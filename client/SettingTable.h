#pragma once

#include <span>
#include <string>
#include <string_view>
#include <xmlrpc-c/base.hpp>

namespace tavrik {

/// Something of the gripper that can be read or set.
struct Setting {
    enum class Kind { Byte, Preset, Limit, Flag, Checksum };
    enum class Place { Gripper, Set, Led };  ///< what has one of its own

    std::string_view name;
    std::string_view getter;  ///< empty if it cannot be read
    std::string_view setter;  ///< empty if it cannot be set
    Kind kind;
    Place place;
    std::string_view models;  ///< that have it, and what else the help says
};

std::span<const Setting> Settings();

/// @throws Failure (Usage)
const Setting& FindSetting(const std::string& name);

/// The values that there are, in words as in "0 to 255".
std::string ValueRange(const Setting& setting);

/// `text` as the parameter of the setter. The daemon checks no range, so this does.
/// @throws Failure (Usage)
xmlrpc_c::value ParseSetting(const Setting& setting, const std::string& text);

/// `text` as the gripper gets it, and as "get" shows it: limits have no more than two decimals.
/// @throws Failure (Usage)
std::string SettingText(const Setting& setting, const std::string& text);

/// What to send for a limit, so that the gripper gets exactly the nearest hundredth: the daemon
/// cuts limit x 100 + 0.5 off after the point, which by itself would raise a negative limit.
double LimitToSend(double limit);

}  // namespace tavrik
