#include "tools/commands/ListCommand.h"

#include <nlohmann/json.hpp>

#include "tools/Printable.h"
#include "tools/ProcessData.h"

namespace tavrikctl {

ListCommand::ListCommand(CLI::App& program) : Command(program, "list", "One row for each gripper") {
    app.add_flag("--json", json, "for programs");
}

ExitStatus ListCommand::Run(Daemon& daemon, Printer& printer) {
    std::vector<std::vector<Cell>> rows;
    auto list = nlohmann::ordered_json::array();
    for (const std::string& gripper : daemon.Grippers()) {
        const ProcessData data(daemon.Get<int>("GetPDINExcerpt", gripper));
        const std::string flags = data.FlagText();
        rows.push_back({{Printable(gripper)},
                        {std::to_string(data.state)},
                        {HundredthsText(data.position)},
                        {flags.empty() ? "none" : flags, data.fault || data.tempFault}});
        list.push_back({{"gripper", gripper},
                        {"state", data.state},
                        {"position", data.position},
                        {"fault", data.fault},
                        {"temperatureFault", data.tempFault},
                        {"temperatureWarning", data.tempWarn},
                        {"maintenance", data.maintenance}});
    }
    if (json) {
        printer.Json(list);
    } else {
        printer.Table({{"GRIPPER"}, {"STATE", Align::Right}, {"POSITION", Align::Right}, {"FLAGS"}},
                      rows);
    }
    return ExitStatus::Done;
}

}  // namespace tavrikctl
