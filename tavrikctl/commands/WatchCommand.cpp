#include "tavrikctl/commands/WatchCommand.h"

#include <unistd.h>

#include "client/Printable.h"
#include "tavrikctl/Terminal.h"
#include "tavrikctl/WatchView.h"

namespace tavrik {

namespace {
constexpr std::chrono::milliseconds kPatience(1000);
constexpr std::chrono::milliseconds kFramePause(50);

/// Not the present time: a reader that takes no rows holds them up.
std::chrono::system_clock::time_point WallTimeOf(const Observation& observation) {
    using std::chrono::system_clock;
    const auto age = Observation::Clock::now() - observation.time;
    return system_clock::now() - std::chrono::duration_cast<system_clock::duration>(age);
}

}  // namespace

WatchCommand::WatchCommand(CLI::App& program)
    : Command(program, "watch", "Show the state and position of a gripper live") {
    AddGripper();
    auto* const csvFlag =
        app.add_flag("--csv", csv, "print rows of comma-separated values, no live screen");
    app.add_flag("--json", json, "print one JSON object per line, no live screen")
        ->excludes(csvFlag);
    app.add_flag("--passive", passive,
                 "send nothing to the gripper: frozen values are not detected");
}

ExitStatus WatchCommand::Run(Daemon& daemon, Printer& printer) {
    const std::string device = ChosenGripper(daemon);
    const Endpoint& server = daemon.Server();
    const bool hasScreen = isatty(STDIN_FILENO) == 1 && IsOnTerminal();
    GripperMonitor monitor(server, device, passive);
    if (csv || json || !hasScreen) {
        PrintRows(monitor, printer);
    }
    ShowScreen(monitor, Printable(device), server.Address());
    return ExitStatus::Done;
}

void WatchCommand::ShowScreen(GripperMonitor& monitor, const std::string& title,
                              const std::string& server) {
    Terminal terminal(WantsColours());
    WatchView view(title, server);
    do {
        for (const Observation& observation : monitor.Take(std::chrono::milliseconds(0))) {
            view.Add(observation);
        }
        terminal.Show(view.Render(terminal.Width(), terminal.Height()));
    } while (!terminal.IsLeaving(kFramePause));
}

WatchRows::Form WatchCommand::RowForm() const {
    using Form = WatchRows::Form;
    return csv ? Form::Csv : json ? Form::Json : Form::Aligned;
}

void WatchCommand::PrintRows(GripperMonitor& monitor, Printer& printer) const {
    const WatchRows rows(RowForm());
    if (!rows.Header().empty()) {
        printer.Line(rows.Header());
    }
    while (true) {
        for (const Observation& observation : monitor.Take(kPatience)) {
            printer.Line(rows.Row(observation, WallTimeOf(observation)));
        }
    }
}

}  // namespace tavrik
