#pragma once

#include <CLI/App.hpp>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "client/Daemon.h"
#include "client/Failure.h"
#include "tavrikctl/commands/Command.h"

namespace tavrik {

/// The command line of tavrikctl: the options that all commands share, and the commands.
class CommandLine {
public:
    CommandLine();

    /// Parses the command line and runs its command; errors go to standard error.
    /// @return the exit status of the program
    ExitStatus Run(int argc, const char* const* argv);

private:
    void AddOptions();
    void AddCommands();
    void CheckCommand(const std::vector<std::string>& words) const;
    const CLI::App& ChosenCommand() const;
    std::string ChosenPath() const;
    std::string HelpAdvice() const;
    std::string UnknownOptionText(const std::string& option) const;
    [[noreturn]] void ExplainExtras() const;
    ExitStatus ReadAndRun(int argc, const char* const* argv);

    CLI::App app;
    Endpoint endpoint;
    std::vector<std::unique_ptr<Command>> commands;
};

}  // namespace tavrik
