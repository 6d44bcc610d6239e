#pragma once

#include <string>

#include "tavrikctl/commands/Command.h"

namespace tavrik {

/// Tells why a gripper does not answer.
class DoctorCommand : public Command {
public:
    /// @param endpoint the program's; must outlive the command
    DoctorCommand(CLI::App& program, const Endpoint& endpoint);
    ExitStatus Run(Daemon& daemon, Printer& printer) override;

private:
    const Endpoint& server;
    std::string bundle;
    bool json = false;
};

}  // namespace tavrik
