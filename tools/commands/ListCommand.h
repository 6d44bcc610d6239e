#pragma once

#include "tools/commands/Command.h"

namespace tavrikctl {

/// One row for each gripper.
class ListCommand : public Command {
public:
    explicit ListCommand(CLI::App& program);
    ExitStatus Run(Daemon& daemon, Printer& printer) override;

private:
    bool json = false;
};

}  // namespace tavrikctl
