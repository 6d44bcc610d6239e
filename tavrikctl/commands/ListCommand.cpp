#include <nlohmann/json.hpp>
#include <optional>
#include <set>

#include "client/Gripper.h"
#include "client/Printable.h"
#include "client/Values.h"
#include "tavrikctl/commands/Command.h"

namespace tavrik {

namespace {

struct Entry {
    std::string gripper;  // device string
    ProcessData data;
    Model model;
    std::string note;
    std::optional<bool> answers;  // whether its master does; nothing if not asked
};

/// Whether the table shows a device string exactly as calls must pass it.
bool IsShownExactly(const std::string& device) {
    return Printable(device) == device && !device.starts_with(' ') && !device.ends_with(' ');
}

Entry Examine(const Gripper& gripper, bool passive) {
    Entry entry{gripper.DeviceString(), gripper.ReadProcessData(), {}, "", std::nullopt};
    std::string model = kModelNotAsked;
    if (!passive) {
        entry.answers = gripper.MasterAnswers();
    }
    if (entry.answers == false) {
        entry.note = "master does not answer, values may be old";
    } else if (!entry.data.certain) {
        entry.note = "zero or no process data";
    } else if (!passive) {
        model = gripper.Model();
    }
    if (entry.note.empty() && !IsShownExactly(entry.gripper)) {
        entry.note = "name not as shown: see --json";
    }
    entry.model = NarrowModel(model, entry.gripper);
    return entry;
}

void PrintTable(const std::vector<Entry>& entries, Printer& printer) {
    if (entries.empty()) {
        printer.Line("No grippers found.");
        return;
    }
    std::vector<std::vector<Cell>> rows;
    for (const Entry& entry : entries) {
        const std::string flags = entry.data.FlagText();
        rows.push_back({{Printable(entry.gripper)},
                        {entry.model.Text()},
                        {std::to_string(entry.data.state)},
                        {HundredthsText(entry.data.position)},
                        {flags.empty() ? "none" : flags, !flags.empty()},
                        {entry.note, entry.answers == false}});
    }
    printer.Table({{"GRIPPER"},
                   {"MODEL"},
                   {"STATE", Align::Right},
                   {"POSITION", Align::Right},
                   {"FLAGS"},
                   {""}},
                  rows);
}

void PrintJson(const std::vector<Entry>& entries, Printer& printer) {
    auto list = nlohmann::ordered_json::array();
    for (const Entry& entry : entries) {
        nlohmann::ordered_json object{{"gripper", entry.gripper},
                                      {"model", entry.model.name},
                                      {"modelFrom", entry.model.from}};
        entry.data.AddTo(object);
        object["answers"] = nullptr;
        if (entry.answers) {
            object["answers"] = *entry.answers;
        }
        list.push_back(object);
    }
    printer.Json(list);
}

/// Prints one row for each gripper.
class ListCommand : public Command {
public:
    explicit ListCommand(CLI::App& program)
        : Command(program, "list", "List all grippers with their model, state and position") {
        app.add_flag("--passive", passive, "send nothing: silent grippers are not detected");
        AddJson();
    }

    ExitStatus Run(Daemon& daemon, Printer& printer) override {
        std::vector<Entry> entries;
        std::set<std::string> names;
        for (const std::string& device : daemon.Grippers()) {
            try {
                entries.push_back(Examine(Gripper(daemon, device), passive));
            } catch (const Failure& failure) {
                if (failure.Status() != ExitStatus::NoGripper) {
                    throw;
                }
                continue;  // it has just been unplugged
            }
            if (!names.insert(device).second) {
                entries.back().note = "duplicate name: calls reach the first";
            }
        }
        json ? PrintJson(entries, printer) : PrintTable(entries, printer);
        return ExitStatus::Done;
    }

private:
    bool passive = false;
};

}  // namespace

std::unique_ptr<Command> MakeListCommand(CLI::App& program) {
    return std::make_unique<ListCommand>(program);
}

}  // namespace tavrik
