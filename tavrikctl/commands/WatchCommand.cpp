#include <unistd.h>

#include <algorithm>

#include "client/CellMonitor.h"
#include "client/Printable.h"
#include "tavrikctl/CellView.h"
#include "tavrikctl/Terminal.h"
#include "tavrikctl/WatchRows.h"
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

template <typename View>
void ShowScreen(CellMonitor& monitor, View view) {
    Terminal terminal(WantsColours());
    do {
        for (const Observation& observation : monitor.Take(std::chrono::milliseconds(0))) {
            view.Add(observation);
        }
        terminal.Show(view.Render(terminal.Width(), terminal.Height(), Observation::Clock::now()));
    } while (!terminal.WaitForQuit(kFramePause));
}

[[noreturn]] void PrintRows(CellMonitor& monitor, RowForm form, std::size_t nameWidth,
                            Printer& printer) {
    if (const std::string header = WatchHeader(form, nameWidth); !header.empty()) {
        printer.Line(header);
    }
    while (true) {
        for (const Observation& observation : monitor.Take(kPatience)) {
            printer.Line(WatchRow(form, observation, WallTimeOf(observation), nameWidth));
        }
    }
}

std::size_t NameWidth(const std::vector<std::string>& devices) {
    std::size_t width = 0;
    for (const std::string& device : devices) {
        width = std::max(width, Width(Printable(device)));
    }
    return width;
}

/// Shows grippers live: as a screen on a terminal, otherwise as a row for each observation.
class WatchCommand : public Command {
public:
    explicit WatchCommand(CLI::App& program)
        : Command(program, "watch", "Show state and position of one or all grippers live") {
        AddGripper();
        auto* const csvFlag =
            app.add_flag("--csv", csv, "print rows of comma-separated values, no live screen");
        app.add_flag("--json", json, "print one JSON object per line, no live screen")
            ->excludes(csvFlag);
        app.add_flag("--passive", passive, "send nothing: frozen values are not detected");
    }

    ExitStatus Run(Daemon& daemon, Printer& printer) override {
        const auto devices = Devices(daemon);
        const bool isOne = devices.size() == 1;
        CellMonitor monitor(daemon.Server(), {devices, !isOne, passive});
        if (csv || json || isatty(STDIN_FILENO) != 1 || !IsOnTerminal()) {
            PrintRows(monitor,
                      csv    ? RowForm::Csv
                      : json ? RowForm::Json
                             : RowForm::Aligned,
                      NameWidth(devices), printer);
        }
        const std::string server = daemon.Server().Address();
        isOne ? ShowScreen(monitor, WatchView(Printable(devices.front()), server))
              : ShowScreen(monitor, CellView(server));
        return ExitStatus::Done;
    }

private:
    /// The gripper that is named, otherwise all.
    /// @throws Failure (NoGripper)
    std::vector<std::string> Devices(Daemon& daemon) const {
        if (NamesGripper()) {
            return {ChosenGripper(daemon)};
        }
        auto devices = daemon.Grippers();
        return devices.empty() ? std::vector{daemon.FindGripper("")} : devices;
    }

    bool csv = false;
    bool passive = false;
};

}  // namespace

std::unique_ptr<Command> MakeWatchCommand(CLI::App& program) {
    return std::make_unique<WatchCommand>(program);
}

}  // namespace tavrik
