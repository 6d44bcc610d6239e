#pragma once

#include "tools/commands/SettingCommand.h"

namespace tavrikctl {

/// Reads a setting.
class GetCommand : public SettingCommand {
public:
    explicit GetCommand(CLI::App& program);
    ExitStatus Run(Daemon& daemon, Printer& printer) override;

private:
    bool json = false;
};

}  // namespace tavrikctl
