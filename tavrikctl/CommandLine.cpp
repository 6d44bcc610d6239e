#include "tavrikctl/CommandLine.h"

#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <algorithm>
#include <iostream>

#include "client/Failure.h"
#include "client/Printable.h"
#include "common/Version.h"
#include "tavrikctl/Options.h"
#include "tavrikctl/commands/CallCommand.h"
#include "tavrikctl/commands/DoctorCommand.h"
#include "tavrikctl/commands/GetCommand.h"
#include "tavrikctl/commands/ListCommand.h"
#include "tavrikctl/commands/MotionCommand.h"
#include "tavrikctl/commands/SetCommand.h"
#include "tavrikctl/commands/WatchCommand.h"

namespace tavrik {

namespace {

constexpr const char* kExitStatuses =
    R"(Exit status:
  0    done
  1    the gripper's master has refused with an error code of its own, or
       a setting has another value than was set
  2    the command line is not understood
  3    no such gripper any more, or its model cannot do it
  4    the daemon cannot be reached, or has not answered in time
  5    the gripper's master has not answered
  6    the daemon has answered with a fault, or is no TavrikDaemon
  7    no gripper, or more than one, has the name given
  8    --wait: the gripper still moves
  9    the output cannot be written, or tavrikctl has failed
  10   --wait: the gripper is at rest, with a fault
  12   nothing could be sent to the gripper's master
  21   there are no process data: the gripper may be starting)";

void PrintError(std::string text) {
    std::replace(text.begin(), text.end(), '\n', ' ');
    std::cerr << "tavrikctl: " << Printable(text) << '\n';
}

/// What a URL would not take for one, or for another. One colon is that of a port; IPv6 has more.
std::string NameOfHost(const std::string& text) {
    const bool isHost = !text.empty() && text.find_first_of("/?#@\\ \t\r\n") == std::string::npos &&
                        std::count(text.begin(), text.end(), ':') != 1;
    return isHost ? "" : "'" + text + "' is no name of a host";
}

}  // namespace

CommandLine::CommandLine() : app("Operates grippers through a running TavrikDaemon.", "tavrikctl") {
    constexpr std::size_t kOptionWidth = 24;  // leaves 56 columns of 80 for what they do
    app.require_subcommand(0, 1);
    app.get_formatter()->column_width(kOptionWidth);
    app.fallthrough();
    app.set_version_flag("--version", "tavrikctl " TAVRIK_VERSION);
    AddOptions();
    AddCommands();
    app.footer(kExitStatuses);  // now: commands take over what is set before
}

void CommandLine::AddOptions() {
    constexpr unsigned kLargestPort = 65535;
    app.add_option("--host", endpoint.host, "where the daemon runs (127.0.0.1 if not given)")
        ->check(NameOfHost)
        ->option_text("HOST");
    app.add_option("--port", endpoint.port,
                   std::to_string(kPorts[0]) + " (if not given) or " + std::to_string(kPorts[1]))
        ->check(CheckDecimal)
        ->check(CLI::Range(1U, kLargestPort))
        ->option_text("PORT");
    AddTimeOption(app, "--timeout", endpoint.timeout,
                  "seconds that one call may take (10 if not given)");
}

void CommandLine::AddCommands() {
    using Argument = Motion::Argument;
    Add<ListCommand>();
    Add<MotionCommand>(Motion{"grip", "Grip", "Grip", Argument::Set});
    Add<MotionCommand>(Motion{"release", "Release", "Release", Argument::Set});
    Add<MotionCommand>(Motion{"home", "Make a reference run", "Reference"});
    Add<MotionCommand>(Motion{"disable", "Switch the drive off", "Disable"});
    Add<MotionCommand>(Motion{"holdfast", "Hold the part with the drive off, or no longer",
                              "Holdfast", Argument::OnOff, false});
    Add<MotionCommand>(Motion{"store", "Have the gripper keep its settings over a power failure",
                              "StoreRemanent", Argument::None, false});
    Add<GetCommand>();
    Add<SetCommand>();
    Add<WatchCommand>();
    Add<CallCommand>();
    Add<DoctorCommand>(endpoint);
}

template <typename Kind, typename... Arguments>
void CommandLine::Add(const Arguments&... arguments) {
    commands.push_back(std::make_unique<Kind>(app, arguments...));
}

ExitStatus CommandLine::Run(int argc, const char* const* argv) {
    try {
        return ReadAndRun(argc, argv);
    } catch (const CLI::ParseError& error) {
        PrintError(std::string(error.what()) + "; see tavrikctl --help");
        return ExitStatus::Usage;
    } catch (const Failure& failure) {
        PrintError(failure.what());
        return failure.Status();
    } catch (const std::exception& error) {
        PrintError(error.what());
        return ExitStatus::Failed;
    }
}

ExitStatus CommandLine::ReadAndRun(int argc, const char* const* argv) {
    Printer printer(std::cout, WantsColours());
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& help) {
        app.exit(help);
        printer.Flush();
        return ExitStatus::Done;
    }
    const auto command = std::find_if(commands.begin(), commands.end(),
                                      [](const auto& each) { return each->IsChosen(); });
    if (command == commands.end()) {
        throw Failure(ExitStatus::Usage, "a command is missing; see tavrikctl --help");
    }
    Daemon daemon(endpoint);
    return (*command)->Run(daemon, printer);
}

}  // namespace tavrik
