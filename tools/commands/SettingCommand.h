#pragma once

#include <string>
#include <xmlrpc-c/base.hpp>

#include "tools/Gripper.h"
#include "tools/SettingTable.h"
#include "tools/commands/Command.h"

namespace tavrikctl {

/// What "get" and "set" have in common: the setting, and the number of its parameter set or LED.
class SettingCommand : public Command {
protected:
    SettingCommand(CLI::App& program, const std::string& name, const std::string& description);

    /// Declares the options. To be called when the positional arguments have been declared.
    void AddNumbers();

    /// @throws Failure (Usage), also when a number was given that the setting does not have
    const Setting& ChosenSetting() const;

    /// The parameters of getter and setter between device string and value.
    xmlrpc_c::carray Numbers(const Setting& setting) const;

    /// Gripper and setting in words.
    std::string Title(const Setting& setting, const Gripper& gripper) const;

    std::string settingName;
    int set = 0;
    int led = 0;

private:
    CLI::Option* setOption = nullptr;  // the app's, like the next one
    CLI::Option* ledOption = nullptr;
};

}  // namespace tavrikctl
