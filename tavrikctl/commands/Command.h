#pragma once

#include <CLI/App.hpp>
#include <string>

#include "client/Daemon.h"
#include "client/Failure.h"
#include "tavrikctl/Printer.h"

namespace tavrik {

/// A subcommand. Its constructor declares it and its options; Run() does the work, once the
/// command line has been read.
class Command {
public:
    Command(CLI::App& program, const std::string& name, const std::string& description)
        : app(*program.add_subcommand(name, description)) {}
    virtual ~Command() = default;
    Command(const Command&) = delete;
    Command& operator=(const Command&) = delete;

    bool IsChosen() const { return app.parsed(); }

    /// @throws Failure
    virtual ExitStatus Run(Daemon& daemon, Printer& printer) = 0;

protected:
    // Options and arguments that several commands have.
    void AddGripper();
    CLI::Option* AddSetNumber(int& number);
    CLI::Option* AddNumber(const std::string& name, int& number, int largest,
                           const std::string& description);
    void AddJson(bool& json);

    /// The device string of the gripper that is named, or of the only one.
    /// @throws Failure (NoGripper)
    std::string ChosenGripper(Daemon& daemon) const;

    CLI::App& app;  // the program's

private:
    std::string gripperName;
    bool isWholeName = false;
};

}  // namespace tavrik
