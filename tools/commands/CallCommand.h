#pragma once

#include <string>
#include <vector>

#include "tools/commands/Command.h"

namespace tavrikctl {

/// Any method, with its arguments as text.
class CallCommand : public Command {
public:
    explicit CallCommand(CLI::App& program);
    ExitStatus Run(Daemon& daemon, Printer& printer) override;

private:
    std::string methodName;
    std::vector<std::string> arguments;
    bool json = false;
    bool exact = false;
};

}  // namespace tavrikctl
