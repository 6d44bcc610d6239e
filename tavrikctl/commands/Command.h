#pragma once

#include <CLI/App.hpp>
#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "client/Daemon.h"
#include "client/Failure.h"
#include "client/Gripper.h"
#include "client/MotionJudge.h"
#include "tavrikctl/Printer.h"

namespace tavrik {

/// A subcommand. Its constructor declares it and its options; Run() executes it after the command
/// line has been parsed.
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
    void AddJson();
    /// @param name with dashes for an option; otherwise that of an argument
    CLI::Option* AddFile(const std::string& name, std::string& path,
                         const std::string& description);

    /// The device string of the gripper that is named, or of the only one.
    /// @throws Failure (NoGripper)
    std::string ChosenGripper(Daemon& daemon) const;

    bool NamesGripper() const { return !gripperName.empty(); }

    CLI::App& app;  // the program's
    bool json = false;

private:
    std::string gripperName;
    bool isExact = false;
};

// The commands, each declared in `program`, which must outlive it.
std::unique_ptr<Command> MakeCallCommand(CLI::App& program);
std::unique_ptr<Command> MakeCellCommand(CLI::App& program);
/// @param endpoint the program's; must outlive the command
std::unique_ptr<Command> MakeDoctorCommand(CLI::App& program, const Endpoint& endpoint);
std::unique_ptr<Command> MakeGetCommand(CLI::App& program);
std::unique_ptr<Command> MakeListCommand(CLI::App& program);
std::unique_ptr<Command> MakeLogCommand(CLI::App& program);
std::unique_ptr<Command> MakeSetCommand(CLI::App& program);
/// The commands of "settings".
std::vector<std::unique_ptr<Command>> MakeSettingsCommands(CLI::App& program);
std::unique_ptr<Command> MakeWatchCommand(CLI::App& program);

/// A command to the gripper: one call that returns a status.
struct Motion {
    enum class Argument { None, Set, OnOff };

    std::string name;
    std::string description;
    std::string method;
    Argument argument = Argument::None;
    std::optional<MotionKind> kind = {};  ///< if its end can be waited for
};
std::unique_ptr<Command> MakeMotionCommand(CLI::App& program, const Motion& motion);

/// A command as it can be typed in a shell, for this gripper of this daemon.
std::string CommandText(const std::string& command, const Gripper& gripper,
                        const Endpoint& endpoint);

/// Declares a command of `program` that only has commands of its own.
/// @param names of these, for an error message
CLI::App& AddParent(CLI::App& program, const std::string& name, const std::string& description,
                    const std::string& names);

// Checks for CLI11: the error in `text` as the value of an option, empty if there is none.

/// Accepts no leading zero: CLI11 reads 010 as 8.
std::string CheckDecimal(const std::string& text);
std::string CheckNotEmpty(const std::string& text);
/// For a file to be written.
std::string CheckNoFolder(const std::string& path);

/// Declares the option `name` of `app`: a time in seconds, from a millisecond to an hour, that is
/// stored in `time`.
CLI::Option* AddTimeOption(CLI::App& app, const std::string& name, std::chrono::milliseconds& time,
                           const std::string& description);

}  // namespace tavrik
