#pragma once

#include <cstdint>
#include <map>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>
#include <xmlrpc-c/base.hpp>

#include "client/SettingTable.h"

namespace tavrik {

/// One value of a gripper: a setting, and the parameter set or LED that it belongs to.
struct SettingPlace {
    const Setting* setting;  ///< of Settings()
    int number = 0;          ///< of the parameter set or LED

    /// In words, as in "force of set 0".
    std::string Name() const;

    /// The parameters of getter and setter between device string and value.
    xmlrpc_c::carray Parameters() const;

    /// By set or LED, and there in the order of Settings().
    bool operator<(const SettingPlace& other) const;
};

/// All settings of a gripper that can be read and set. Values are the gripper's own integers:
/// hundredths for limits, 1 for on. A gripper does not tell how many parameter sets and LEDs it
/// has: all are read, and those that it does not have are 0.
struct GripperSettings {
    std::string gripper;  ///< device string
    std::string model;    ///< as far as known: HVA, MZD, TLM, "HVA or MZD" or "TLM?"
    std::int64_t checksum = 0;
    std::map<SettingPlace, int> values;

    /// 0 if there is none.
    int Value(const SettingPlace& place) const;

    /// How many parameter sets or LEDs to show: up to the last with a value other than 0, and at
    /// least one set.
    int Count(Setting::Place place) const;

    /// The product name in the device string.
    std::string Product() const;

    /// @throws Failure (NotPossible) unless `other` is of the same product and may be of the same
    /// model
    void ExpectSameModel(const GripperSettings& other, const std::string& path) const;
};

constexpr int kSetCount = 32;   ///< higher indices are not parameter sets
constexpr int kLedCount = 128;  ///< higher indices are not LEDs

/// What a gripper of this model may have, in the order of Settings(), by number.
std::vector<SettingPlace> PlacesOf(const std::string& model);

/// Zeros that may be failed reads: of overrides, and of the sets in use. If the master refuses to
/// send a value, the daemon returns 0 or the previous value.
std::vector<SettingPlace> DoubtfulZeros(const GripperSettings& settings);

/// A value in words, as in "2.00" or "on".
std::string SettingText(const Setting& setting, int value);

/// The same for a value as calls return it, such as 2.0 or true.
/// @throws nlohmann::json::type_error for a value that is not of the setting's type
std::string ValueText(const Setting& setting, const nlohmann::ordered_json& value);

/// A value in which two grippers, or a gripper and a file, differ.
struct SettingDifference {
    SettingPlace place;
    int from;
    int to;
};

/// What has to change for `from` to become `to`.
std::vector<SettingDifference> Differences(const GripperSettings& from, const GripperSettings& to);

/// The content of a settings file; docs/tavrikctl.md describes the format.
nlohmann::json ToJson(const GripperSettings& settings);

/// @throws Failure (Usage) if the file `path` is anything but a complete settings file
GripperSettings ReadSettingsFile(const std::string& path);

/// The same for the content of a file, which a user knows by the name `path`.
GripperSettings ParseSettingsFile(const std::string& text, const std::string& path);

}  // namespace tavrik
