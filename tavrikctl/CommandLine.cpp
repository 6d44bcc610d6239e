#include "tavrikctl/CommandLine.h"

#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <algorithm>
#include <iostream>
#include <iterator>
#include <sstream>
#include <utility>

#include "client/Failure.h"
#include "client/Nearest.h"
#include "client/Printable.h"
#include "common/Version.h"
#include "tavrikctl/HelpTexts.h"

namespace tavrik {

namespace {

constexpr const char* kExitStatuses =
    R"(Exit status:
  0    done
  1    the gripper's master refused with an error code of its own, a setting
       does not have the value that was set, 'settings diff' found
       differences, or 'restore' was declined
  2    invalid command line or file
  3    gripper not plugged in, not supported by its model, or daemon busy
  4    the daemon cannot be reached or did not answer in time
  5    the gripper's master did not answer
  6    the daemon replied with a fault, or is not a TavrikDaemon
  7    no gripper, or more than one, matches the name
  8    --wait: the gripper is still moving; settings: it is in use
  9    the output cannot be written, or tavrikctl failed
  10   --wait: the gripper is at rest with a fault
  11   --wait: the gripper did not move, or stopped on the way
  12   nothing could be sent to the gripper's master
  13   --hold-for: no part was gripped, or it was lost
  14   --cell, --strict: a gripper is missing, new or exchanged, or something
       is wrong
  21   no process data: the gripper may be starting
  130  interrupted by Ctrl-C; 143 by SIGTERM, 129 by SIGHUP)";

/// Replaces the words "help" and "version" in the place of a command by the options of these names.
std::vector<std::string> ReplaceHelpAndVersion(std::vector<std::string> arguments) {
    if (arguments.empty()) {
        return arguments;
    }
    if (arguments.front() == "version") {
        arguments.front() = "--version";
    } else if (arguments.front() == "help") {
        arguments.erase(arguments.begin());
        arguments.emplace_back("--help");
    }
    return arguments;
}

void PrintError(std::string text) {
    std::replace(text.begin(), text.end(), '\n', ' ');
    std::cerr << "tavrikctl: " << Printable(text) << '\n';
}

/// @param path the command with a blank behind it; empty for tavrikctl itself
[[noreturn]] void ThrowUnknownCommand(const std::string& path, const std::string& word,
                                      const std::vector<std::string>& names) {
    const std::string question = DidYouMean(word, names);
    throw Failure(ExitStatus::Usage,
                  "unknown command '" + path + word + "'" +
                      (question.empty() ? "; see tavrikctl " + path + "--help" : question));
}

/// Rejects what would change the meaning of a URL. A single colon begins a port; IPv6 has more.
std::string CheckHost(const std::string& text) {
    const bool isHost = !text.empty() && text.find_first_of("/?#@\\ \t\r\n") == std::string::npos &&
                        std::count(text.begin(), text.end(), ':') != 1;
    return isHost ? "" : "invalid host name '" + text + "'";
}

}  // namespace

CommandLine::CommandLine() : app("Operate grippers through a running TavrikDaemon.", "tavrikctl") {
    constexpr std::size_t kOptionWidth = 24;  // leaves 56 columns of 80 for the descriptions
    app.require_subcommand(0, 1);
    app.get_formatter()->column_width(kOptionWidth);
    app.fallthrough();
    app.set_version_flag("--version", "tavrikctl " TAVRIK_VERSION);
    AddOptions();
    AddCommands();
    app.footer(kExitStatuses);  // last: commands inherit what is set before
}

void CommandLine::AddOptions() {
    constexpr unsigned kLargestPort = 65535;
    app.add_option("--host", endpoint.host,
                   "host name or address of the daemon (default: 127.0.0.1)")
        ->check(CheckHost)
        ->option_text("HOST");
    app.add_option("--port", endpoint.port,
                   std::to_string(kPorts[0]) + " (default) or " + std::to_string(kPorts[1]))
        ->check(CheckDecimal)
        ->check(CLI::Range(1U, kLargestPort))
        ->option_text("PORT");
    AddTimeOption(app, "--timeout", endpoint.timeout,
                  "time limit of one call, 0.001 to 3600 s (default: 10)");
}

void CommandLine::AddCommands() {
    using Argument = Motion::Argument;
    commands.push_back(MakeListCommand(app));
    for (const Motion& motion :
         {Motion{"grip", "Close the fingers on a part, using a parameter set", "Grip",
                 Argument::Set, MotionKind::Grip},
          Motion{"release", "Open the fingers, using a parameter set", "Release", Argument::Set,
                 MotionKind::Release},
          Motion{"home", "Perform a reference run", "Reference", Argument::None,
                 MotionKind::Reference},
          Motion{"disable", "Switch the drive off", "Disable", Argument::None, MotionKind::Disable},
          Motion{"holdfast", "Turn holdfast on or off", "Holdfast", Argument::OnOff},
          Motion{"store", "Save the gripper's settings to its permanent memory",
                 "StoreRemanent"}}) {
        commands.push_back(MakeMotionCommand(app, motion));
    }
    commands.push_back(MakeGetCommand(app));
    commands.push_back(MakeSetCommand(app));
    for (auto& command : MakeSettingsCommands(app)) {
        commands.push_back(std::move(command));
    }
    commands.push_back(MakeCellCommand(app));
    commands.push_back(MakeWatchCommand(app));
    commands.push_back(MakeCallCommand(app));
    commands.push_back(MakeDoctorCommand(app, endpoint));
    commands.push_back(MakeLogCommand(app));
    for (CLI::App* const command : app.get_subcommands({})) {
        command->footer(HelpText(command->get_name()));
        for (CLI::App* const part : command->get_subcommands({})) {
            part->footer(HelpText(command->get_name() + " " + part->get_name()));
        }
    }
}

/// @param words that may be a command, and a command of it
/// @throws Failure (Usage) if there is no such command
void CommandLine::CheckCommand(const std::vector<std::string>& words) const {
    const CLI::App* parent = &app;
    std::string path;
    for (const std::string& word : words) {
        const auto children = parent->get_subcommands({});
        if (children.empty() || word.starts_with('-')) {
            return;
        }
        const auto command = std::ranges::find(children, word, &CLI::App::get_name);
        if (command == children.end()) {
            std::vector<std::string> names;
            std::ranges::transform(children, std::back_inserter(names), &CLI::App::get_name);
            ThrowUnknownCommand(path, word, names);
        }
        path.append(word).append(" ");
        parent = *command;
    }
}

/// The name of the chosen command, with its parents: "settings save".
std::string CommandLine::ChosenPath() const {
    std::string path;
    for (const CLI::App* at = &app; !at->get_subcommands().empty();) {
        at = at->get_subcommands().front();
        path += (path.empty() ? "" : " ") + at->get_name();
    }
    return path;
}

const CLI::App& CommandLine::ChosenCommand() const {
    const CLI::App* at = &app;
    while (!at->get_subcommands().empty()) {
        at = at->get_subcommands().front();
    }
    return *at;
}

std::string CommandLine::HelpAdvice() const {
    const std::string path = ChosenPath();
    return "see tavrikctl " + path + (path.empty() ? "" : " ") + "--help";
}

/// Explains the words of the command line that belong to no option or argument.
/// @throws Failure (Usage)
void CommandLine::ExplainExtras() const {
    const auto extras = app.remaining(true);
    const auto isOption = [](const std::string& each) { return each.starts_with('-'); };
    const auto word = std::ranges::find_if_not(extras, isOption);
    const CLI::App& command = ChosenCommand();
    if (word != extras.end() && !command.get_subcommands({}).empty()) {
        std::istringstream path(ChosenPath() + " " + *word);
        CheckCommand({std::istream_iterator<std::string>(path), {}});
    }
    const auto option = std::ranges::find_if(extras, isOption);
    if (option != extras.end()) {
        throw Failure(ExitStatus::Usage, UnknownOptionText(option->substr(0, option->find('='))));
    }
    const auto* const gripper = command.get_option_no_throw("GRIPPER");
    if (gripper != nullptr && gripper->count() > 0) {
        throw Failure(ExitStatus::Usage, "unexpected argument '" + *word +
                                             "'; quote a name that contains blanks: " +
                                             ShellWord(gripper->as<std::string>() + " " + *word));
    }
    throw Failure(ExitStatus::Usage, "unexpected argument '" + *word + "'; " + HelpAdvice());
}

/// Names the commands that have the option, otherwise the nearest options of the chosen one.
std::string CommandLine::UnknownOptionText(const std::string& option) const {
    const std::string path = ChosenPath();
    if (ChosenCommand().get_option_no_throw(option) != nullptr) {
        return option + " must come after '" + path + "'";
    }
    std::string owners;
    for (const CLI::App* const command : app.get_subcommands({})) {
        if (command->get_option_no_throw(option) != nullptr) {
            owners += (owners.empty() ? "" : ", ") + command->get_name();
        }
    }
    if (!owners.empty()) {
        return option + " is not an option of " + (path.empty() ? "tavrikctl" : path) +
               ", but of: " + owners;
    }
    std::vector<std::string> names;
    for (const CLI::App* const each : {&app, &ChosenCommand()}) {
        for (const CLI::Option* const known : each->get_options()) {
            if (!known->get_lnames().empty()) {
                names.push_back("--" + known->get_lnames().front());
            }
        }
    }
    const std::string question = DidYouMean(option, names);
    return "unknown option '" + option + "'" + (question.empty() ? "; " + HelpAdvice() : question);
}

ExitStatus CommandLine::Run(int argc, const char* const* argv) {
    try {
        return ReadAndRun(argc, argv);
    } catch (const CLI::ParseError& error) {
        PrintError(std::string(error.what()) + "; " + HelpAdvice());
        return ExitStatus::Usage;
    } catch (const Failure& failure) {
        const bool isUnreachable = failure.Status() == ExitStatus::NoDaemon;
        PrintError(failure.what() + (isUnreachable ? "; " + DoctorAdvice(endpoint) : ""));
        return failure.Status();
    } catch (const std::exception& error) {
        PrintError(error.what());
        return ExitStatus::Failed;
    }
}

ExitStatus CommandLine::ReadAndRun(int argc, const char* const* argv) {
    Printer printer(std::cout, WantsColours(), TerminalColumns());
    auto arguments = ReplaceHelpAndVersion({argv + 1, argv + argc});
    if (!arguments.empty() && arguments.back() == "--help") {
        CheckCommand(arguments);  // otherwise CLI11 would print the help of the program
    }
    try {
        std::ranges::reverse(arguments);  // CLI11 takes them from the end
        app.parse(std::move(arguments));
    } catch (const CLI::Success& help) {
        app.exit(help);
        printer.Flush();
        return ExitStatus::Done;
    } catch (const CLI::ExtrasError&) {
        ExplainExtras();
    }
    const auto command =
        std::ranges::find_if(commands, [](const auto& each) { return each->IsChosen(); });
    if (command == commands.end()) {
        throw Failure(ExitStatus::Usage, "missing command; see tavrikctl --help");
    }
    Daemon daemon(endpoint);
    return (*command)->Run(daemon, printer);
}

}  // namespace tavrik
