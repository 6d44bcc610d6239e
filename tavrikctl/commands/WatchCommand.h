#pragma once

#include <string>

#include "client/GripperMonitor.h"
#include "tavrikctl/WatchRows.h"
#include "tavrikctl/commands/Command.h"

namespace tavrik {

/// Shows a gripper live: as a screen on a terminal, elsewhere as a row for each observation.
class WatchCommand : public Command {
public:
    explicit WatchCommand(CLI::App& program);
    ExitStatus Run(Daemon& daemon, Printer& printer) override;

private:
    static void ShowScreen(GripperMonitor& monitor, const std::string& title,
                           const std::string& server);
    WatchRows::Form RowForm() const;
    [[noreturn]] void PrintRows(GripperMonitor& monitor, Printer& printer) const;

    bool csv = false;
    bool json = false;
    bool passive = false;
};

}  // namespace tavrik
