#pragma once

#include <optional>
#include <string>

#include "tools/commands/Command.h"

namespace tavrikctl {

/// A command that moves the gripper, or has it do something, by one call with a status.
class MotionCommand : public Command {
public:
    MotionCommand(CLI::App& program, const std::string& name, const std::string& description,
                  std::string method);
    ExitStatus Run(Daemon& daemon, Printer& printer) override;

protected:
    /// The call itself.
    /// @return the daemon's status
    virtual int Call(Daemon& daemon, const std::string& gripper);

    const std::string method;
    std::string gripperName;
};

/// Grip and Release: with the number of a parameter set.
class SetMotionCommand : public MotionCommand {
public:
    SetMotionCommand(CLI::App& program, const std::string& name, const std::string& description,
                     std::string method);

private:
    int Call(Daemon& daemon, const std::string& gripper) override;

    int set = 0;
};

}  // namespace tavrikctl
