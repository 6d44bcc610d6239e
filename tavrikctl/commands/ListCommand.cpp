#include <algorithm>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>

#include "client/ExpectedCell.h"
#include "client/Gripper.h"
#include "client/GripperModels.h"
#include "client/Printable.h"
#include "client/Values.h"
#include "tavrikctl/commands/Command.h"

namespace tavrik {

namespace {

struct Entry {
    std::string gripper;  // device string
    ProcessData data;
    ModelGuess model;
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
        entry.note = "all zero: possibly no process data";
    } else if (!passive) {
        model = gripper.Model();
    }
    if (entry.note.empty() && !IsShownExactly(entry.gripper)) {
        entry.note = "name not as shown: see --json";
    }
    entry.model = NarrowModel(model, entry.gripper);
    return entry;
}

using CellChanges = std::vector<ExpectedCell::Difference>;

/// How a listed gripper differs from the expected cell; null if it does not.
const ExpectedCell::Difference* ChangeOf(const std::string& gripper, const CellChanges& changes) {
    const auto found = std::ranges::find(changes, gripper, &ExpectedCell::Difference::found);
    return found == changes.end() ? nullptr : &*found;
}

bool IsMissing(const ExpectedCell::Difference& difference) {
    return difference.kind == ExpectedCell::Difference::Kind::Missing;
}

/// The last column: how the gripper differs from the expected cell, and the warning.
StyledText Remark(const Entry& entry, const CellChanges& changes) {
    const auto* const change = ChangeOf(entry.gripper, changes);
    if (change == nullptr) {
        return {entry.note, entry.answers == false};
    }
    return {change->Text() + (entry.note.empty() ? "" : "; " + entry.note), true};
}

void PrintTable(const std::vector<Entry>& entries, const CellChanges& changes, Printer& printer) {
    std::vector<std::vector<StyledText>> rows;
    rows.reserve(entries.size() + changes.size());
    for (const Entry& entry : entries) {
        rows.push_back({{Printable(entry.gripper)},
                        {entry.model.Text()},
                        {std::to_string(entry.data.state)},
                        {HundredthsText(entry.data.position)},
                        {entry.data.FlagText("none"), entry.data.HasFlags()},
                        Remark(entry, changes)});
    }
    for (const auto& change : changes) {
        if (IsMissing(change)) {
            rows.push_back({{Printable(change.expected)}, {}, {}, {}, {}, {change.Text(), true}});
        }
    }
    printer.Table({{"GRIPPER"},
                   {"MODEL"},
                   {"STATE", Align::Right},
                   {"POSITION", Align::Right},
                   {"FLAGS"},
                   {""}},
                  rows);
}

/// @param isCompared whether an expected cell is known
void PrintJson(const std::vector<Entry>& entries, const CellChanges& changes, bool isCompared,
               Printer& printer) {
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
        if (isCompared) {
            const auto* const change = ChangeOf(entry.gripper, changes);
            object["cell"] = change == nullptr ? "expected" : change->Word();
        }
        list.push_back(object);
    }
    for (const auto& change : changes) {
        if (IsMissing(change)) {
            list.push_back({{"gripper", change.expected}, {"cell", change.Word()}});
        }
    }
    printer.Json(list);
}

/// Prints one row for each gripper.
class ListCommand : public Command {
public:
    explicit ListCommand(CLI::App& program)
        : Command(program, "list", "List all grippers with their model, state and position") {
        app.add_flag("--passive", passive, "send nothing: silent grippers are not detected");
        AddFile("--cell", cellFile, "compare with FILE of 'cell save'");
        AddJson();
    }

    ExitStatus Run(Daemon& daemon, Printer& printer) override {
        std::optional<ExpectedCell> cell;
        if (!cellFile.empty()) {
            cell = ExpectedCell::FromFile(cellFile);
        }
        const auto grippers = daemon.Grippers();
        const auto entries = ExamineAll(daemon, grippers);
        const CellChanges changes = cell ? cell->Compare(grippers) : CellChanges();
        if (json) {
            PrintJson(entries, changes, cell.has_value(), printer);
        } else if (entries.empty() && changes.empty()) {
            printer.Line("No grippers found; " + DoctorAdvice(daemon.Server()) + ".");
        } else {
            PrintTable(entries, changes, printer);
        }
        return changes.empty() ? ExitStatus::Done : ExitStatus::NotAsExpected;
    }

private:
    std::vector<Entry> ExamineAll(Daemon& daemon, const std::vector<std::string>& grippers) const {
        std::vector<Entry> entries;
        std::set<std::string> names;
        for (const std::string& device : grippers) {
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
        return entries;
    }

    bool passive = false;
    std::string cellFile;
};

}  // namespace

std::unique_ptr<Command> MakeListCommand(CLI::App& program) {
    return std::make_unique<ListCommand>(program);
}

}  // namespace tavrik
