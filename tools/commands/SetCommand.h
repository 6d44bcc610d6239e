#pragma once

#include <string>

#include "tools/commands/SettingCommand.h"

namespace tavrikctl {

/// Changes a setting.
class SetCommand : public SettingCommand {
public:
    explicit SetCommand(CLI::App& program);
    ExitStatus Run(Daemon& daemon, Printer& printer) override;

private:
    std::string value;
};

}  // namespace tavrikctl
