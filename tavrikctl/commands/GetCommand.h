#pragma once

#include "tavrikctl/commands/SettingCommand.h"

namespace tavrik {

/// Reads a setting.
class GetCommand : public SettingCommand {
public:
    explicit GetCommand(CLI::App& program);
    ExitStatus Run(Daemon& daemon, Printer& printer) override;

private:
    bool json = false;
};

}  // namespace tavrik
