#include <unistd.h>

#include "client/GripperMonitor.h"
#include "client/Printable.h"
#include "tavrikctl/Terminal.h"
#include "tavrikctl/WatchView.h"
#include "tavrikctl/commands/Command.h"

namespace tavrik {

namespace {

constexpr std::chrono::milliseconds kPatience(1000);
constexpr std::chrono::milliseconds kFramePause(50);

/// The wall time of an observation. Not the present time: a slow reader delays the rows.
std::chrono::system_clock::time_point WallTimeOf(const Observation& observation) {
    using std::chrono::system_clock;
    const auto age = Observation::Clock::now() - observation.time;
    return system_clock::now() - std::chrono::duration_cast<system_clock::duration>(age);
}

void ShowScreen(GripperMonitor& monitor, const std::string& title, const std::string& server) {
    Terminal terminal(WantsColours());
    WatchView view(title, server);
    do {
        for (const Observation& observation : monitor.Take(std::chrono::milliseconds(0))) {
            view.Add(observation);
        }
        terminal.Show(view.Render(terminal.Width(), terminal.Height()));
    } while (!terminal.IsLeaving(kFramePause));
}

[[noreturn]] void PrintRows(GripperMonitor& monitor, RowForm form, Printer& printer) {
    if (const std::string header = WatchHeader(form); !header.empty()) {
        printer.Line(header);
    }
    while (true) {
        for (const Observation& observation : monitor.Take(kPatience)) {
            printer.Line(WatchRow(form, observation, WallTimeOf(observation)));
        }
    }
}

/// Shows a gripper live: as a screen on a terminal, otherwise as a row for each observation.
class WatchCommand : public Command {
public:
    explicit WatchCommand(CLI::App& program)
        : Command(program, "watch", "Show the state and position of a gripper live") {
        AddGripper();
        auto* const csvFlag =
            app.add_flag("--csv", csv, "print rows of comma-separated values, no live screen");
        app.add_flag("--json", json, "print one JSON object per line, no live screen")
            ->excludes(csvFlag);
        app.add_flag("--passive", passive, "send nothing: frozen values are not detected");
    }

    ExitStatus Run(Daemon& daemon, Printer& printer) override {
        const std::string device = ChosenGripper(daemon);
        GripperMonitor monitor(daemon.Server(), device, passive);
        if (csv || json || isatty(STDIN_FILENO) != 1 || !IsOnTerminal()) {
            PrintRows(monitor,
                      csv    ? RowForm::Csv
                      : json ? RowForm::Json
                             : RowForm::Aligned,
                      printer);
        }
        ShowScreen(monitor, Printable(device), daemon.Server().Address());
        return ExitStatus::Done;
    }

private:
    bool csv = false;
    bool passive = false;
};

}  // namespace

std::unique_ptr<Command> MakeWatchCommand(CLI::App& program) {
    return std::make_unique<WatchCommand>(program);
}

}  // namespace tavrik
