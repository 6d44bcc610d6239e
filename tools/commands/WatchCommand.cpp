#include "tools/commands/WatchCommand.h"

#include <unistd.h>

#include "tools/Printable.h"
#include "tools/Terminal.h"
#include "tools/WatchRows.h"
#include "tools/WatchView.h"

namespace tavrikctl {

namespace {
constexpr std::chrono::milliseconds kPatience(1000);
constexpr std::chrono::milliseconds kFramePause(50);
}  // namespace

WatchCommand::WatchCommand(CLI::App& program) : Command(program, "watch", "Show a gripper live") {
    AddGripper(gripperName);
    app.add_flag("--csv", csv, "rows of comma-separated values instead of the live screen");
    app.add_flag("--passive", passive,
                 "send nothing to the gripper: frozen values are not noticed then");
}

ExitStatus WatchCommand::Run(Daemon& daemon, Printer& printer) {
    const std::string device = daemon.FindGripper(gripperName);
    const Endpoint& server = daemon.Server();
    const bool hasScreen = isatty(STDIN_FILENO) == 1 && isatty(STDOUT_FILENO) == 1;
    GripperMonitor monitor(server, device, passive);
    if (csv || !hasScreen) {
        PrintRows(monitor, printer);
    }
    ShowScreen(monitor, Printable(device), server.host + ":" + std::to_string(server.port));
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

void WatchCommand::PrintRows(GripperMonitor& monitor, Printer& printer) const {
    const WatchRows rows(csv);
    printer.Line(rows.Header());
    while (true) {
        for (const Observation& observation : monitor.Take(kPatience)) {
            printer.Line(rows.Row(observation, std::chrono::system_clock::now()));
        }
    }
}

}  // namespace tavrikctl
