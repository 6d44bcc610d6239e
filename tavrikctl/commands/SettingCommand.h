#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <xmlrpc-c/base.hpp>

#include "client/Gripper.h"
#include "client/SettingTable.h"
#include "tavrikctl/commands/Command.h"

namespace tavrik {

/// What "get" and "set" have in common: the setting, the number of its parameter set or LED, and
/// how it is read.
class SettingCommand : public Command {
protected:
    SettingCommand(CLI::App& program, const std::string& name, const std::string& description);

    /// Declares the options. To be called when the positional arguments have been declared.
    void AddNumbers();

    /// @throws Failure (Usage), also when a number was given that the setting does not have
    const Setting& ChosenSetting() const;

    /// The parameters of getter and setter between device string and value.
    xmlrpc_c::carray Numbers(const Setting& setting) const;

    /// The setting in words, as in "force of set 0".
    std::string NameOf(const Setting& setting) const;

    /// Gripper and setting in words.
    std::string Title(const Setting& setting, const Gripper& gripper) const;

    /// The value of a setting that can be read.
    /// @throws Failure (NoAnswer) when the answer came so late that it is not the gripper's;
    /// (BadAnswer) when it has an unexpected type
    nlohmann::ordered_json Read(const Setting& setting, const Gripper& gripper) const;

    /// A value that was read, as a person reads it; like SettingText().
    static std::string ValueText(const Setting& setting, const nlohmann::ordered_json& value);

    /// Whether a value that was read is the gripper's: 0 and off are also what a failure answers.
    static bool IsCertain(const nlohmann::ordered_json& value);

    std::string settingName;
    int set = 0;
    int led = 0;

private:
    CLI::Option* setOption = nullptr;  // the app's, like the next one
    CLI::Option* ledOption = nullptr;
};

}  // namespace tavrik
