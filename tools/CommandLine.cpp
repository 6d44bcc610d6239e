#include "tools/CommandLine.h"

#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <algorithm>
#include <cmath>
#include <iostream>

#include "tools/Failure.h"
#include "tools/commands/CallCommand.h"
#include "tools/commands/ListCommand.h"
#include "tools/commands/MotionCommands.h"

namespace tavrikctl {

namespace {

void PrintError(std::string text) {
    std::replace(text.begin(), text.end(), '\n', ' ');
    std::cerr << "tavrikctl: " << text << '\n';
}

}  // namespace

CommandLine::CommandLine() : app("Operates grippers through a running TavrikDaemon.", "tavrikctl") {
    app.require_subcommand(1);
    app.fallthrough();
    AddOptions();
    AddCommands();
}

void CommandLine::AddOptions() {
    constexpr unsigned kLargestPort = 65535;
    constexpr double kShortest = 0.001;  // s
    constexpr double kLongest = 3600;    // s
    app.add_option("--host", endpoint.host, "where the daemon runs")->capture_default_str();
    app.add_option("--port", endpoint.port, "44221 or 44222")
        ->check(CLI::Range(1U, kLargestPort))
        ->capture_default_str();
    app.add_option_function<double>(
           "--timeout",
           [this](double seconds) {
               endpoint.timeout =
                   std::chrono::milliseconds(std::llround(seconds * std::milli::den));
           },
           "seconds that one call may take (10 if not given)")
        ->check(CLI::Range(kShortest, kLongest));
}

void CommandLine::AddCommands() {
    commands.push_back(std::make_unique<ListCommand>(app));
    commands.push_back(std::make_unique<SetMotionCommand>(app, "grip", "Grip", "Grip"));
    commands.push_back(std::make_unique<SetMotionCommand>(app, "release", "Release", "Release"));
    commands.push_back(std::make_unique<MotionCommand>(app, "home", "Reference run", "Reference"));
    commands.push_back(
        std::make_unique<MotionCommand>(app, "disable", "Switch the drive off", "Disable"));
    commands.push_back(std::make_unique<CallCommand>(app));
}

ExitStatus CommandLine::Run(int argc, const char* const* argv) {
    try {
        app.parse(argc, argv);
        return RunCommand();
    } catch (const CLI::Success& help) {
        return static_cast<ExitStatus>(app.exit(help));
    } catch (const CLI::ParseError& error) {
        PrintError(std::string(error.what()) + "; see tavrikctl --help");
        return ExitStatus::Usage;
    } catch (const Failure& failure) {
        PrintError(failure.what());
        return failure.Status();
    }
}

ExitStatus CommandLine::RunCommand() {
    Daemon daemon(endpoint);
    Printer printer(std::cout, WantsColours());
    const auto command = std::find_if(commands.begin(), commands.end(),
                                      [](const auto& each) { return each->IsChosen(); });
    return (*command)->Run(daemon, printer);
}

}  // namespace tavrikctl
