#pragma once

#include <string>

#include "tavrikctl/commands/SettingCommand.h"

namespace tavrik {

/// Changes a setting and reads it back: the daemon's 0 may be the end of an earlier request.
class SetCommand : public SettingCommand {
public:
    explicit SetCommand(CLI::App& program);
    ExitStatus Run(Daemon& daemon, Printer& printer) override;

private:
    /// @throws Failure (Refused) when the gripper has another value than `text`
    void Confirm(const Setting& setting, const Gripper& gripper, const std::string& text) const;

    std::string value;
};

}  // namespace tavrik
