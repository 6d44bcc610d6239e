#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <iostream>
#include <nlohmann/json.hpp>
#include <set>
#include <utility>

#include "client/Gripper.h"
#include "client/GripperSettings.h"
#include "client/JsonFile.h"
#include "client/Printable.h"
#include "client/SettingsTransfer.h"
#include "tavrikctl/Interruption.h"
#include "tavrikctl/ProgressLine.h"
#include "tavrikctl/commands/Command.h"

namespace tavrik {

namespace {

using Json = nlohmann::ordered_json;
using Place = Setting::Place;
using Rows = std::vector<std::vector<StyledText>>;

GripperSettings Read(SettingsTransfer& transfer) {
    ProgressLine line("Reading");
    return transfer.Read(std::ref(line));
}

GripperSettings Read(const Gripper& gripper) {
    SettingsTransfer transfer(gripper);
    return Read(transfer);
}

std::string CountText(std::size_t count) {
    return std::to_string(count) + (count == 1 ? " setting" : " settings");
}

/// The first places in words, as in "force of set 1, force of set 2 and 3 more".
std::string PlacesText(const std::vector<SettingPlace>& places) {
    constexpr std::size_t kMost = 3;
    std::string text;
    for (std::size_t i = 0; i < std::min(places.size(), kMost); ++i) {
        text += (i == 0 ? "" : ", ") + places[i].Name();
    }
    return text +
           (places.size() > kMost ? " and " + std::to_string(places.size() - kMost) + " more" : "");
}

/// A setting that was read as 0 may have another value.
void WarnOfZeros(const GripperSettings& settings) {
    const auto zeros = DoubtfulZeros(settings);
    if (!zeros.empty()) {
        Warn(PlacesText(zeros) +
             ": read as 0, which is also the answer if the master refuses to send a value; "
             "tavrikctl log shows refused readings");
    }
}

/// Zeros in a file may come from a failed read, and sets that are missing in it count as zeros.
void WarnOfFile(const GripperSettings& saved, const GripperSettings& found,
                const std::string& file) {
    const int inFile = saved.Count(Place::Set);
    const int inGripper = found.Count(Place::Set);
    if (inFile < inGripper) {
        Warn(file + " has " + std::to_string(inFile) + " parameter sets with values, the gripper " +
             std::to_string(inGripper) + ": the others are 0 in the file");
    }
    auto zeros = DoubtfulZeros(saved);
    std::erase_if(zeros, [&](const SettingPlace& place) { return found.Value(place) == 0; });
    if (!zeros.empty()) {
        Warn(PlacesText(zeros) + ": 0 in " + file +
             ", but not in the gripper; the master may have refused to send it for the file");
    }
}

/// A table of the differences.
/// @param from,to the titles of the two columns of values
void PrintDifferences(const std::vector<SettingDifference>& differences, const std::string& from,
                      const std::string& to, Printer& printer) {
    Rows rows;
    for (const auto& [place, first, second] : differences) {
        rows.push_back({{place.Name()},
                        {SettingText(*place.setting, first)},
                        {SettingText(*place.setting, second)}});
    }
    printer.Table({{"SETTING"}, {from, Align::Right}, {to, Align::Right}}, rows);
}

std::string Upper(std::string text) {
    std::ranges::transform(text, text.begin(), [](char letter) {
        return letter >= 'a' && letter <= 'z' ? static_cast<char>(letter - 'a' + 'A') : letter;
    });
    return text;
}

/// Prints a row for each parameter set or LED.
void PrintTable(const GripperSettings& settings, Place place, const std::string& title,
                Printer& printer) {
    std::vector<Column> columns{{title, Align::Right}};
    Rows rows(static_cast<std::size_t>(settings.Count(place)));
    for (const auto& [each, value] : settings.values) {
        if (each.setting->place != place || each.number >= settings.Count(place)) {
            continue;
        }
        std::vector<StyledText>& row = rows[static_cast<std::size_t>(each.number)];
        if (row.empty()) {
            row.push_back({std::to_string(each.number)});
        }
        row.push_back({SettingText(*each.setting, value)});
        if (each.number == 0) {
            columns.push_back({Upper(std::string(each.setting->name)), Align::Right});
        }
    }
    if (!rows.empty()) {
        printer.Line("");
        printer.Table(columns, rows);
    }
}

void Print(const GripperSettings& settings, Printer& printer) {
    Rows rows{{{"GRIPPER"}, {Printable(settings.gripper)}},
              {{"model"}, {settings.model}},
              {{"checksum"}, {std::to_string(settings.checksum)}}};
    for (const auto& [place, value] : settings.values) {
        if (place.setting->place == Place::Gripper) {
            rows.push_back({{place.Name()}, {SettingText(*place.setting, value)}});
        }
    }
    printer.Table({{""}, {""}}, rows);
    PrintTable(settings, Place::Set, "SET", printer);
    PrintTable(settings, Place::Led, "LED", printer);
    const bool hasLeds = PlacesOf(settings.model).back().setting->place == Place::Led;
    printer.Line("");
    printer.Line(std::string("Other sets") + (hasLeds ? " and LEDs" : "") + ": 0 or absent.");
}

/// Whether the user can be asked: standard input and output are a terminal.
bool CanAskUser() {
    return isatty(STDIN_FILENO) == 1 && isatty(STDOUT_FILENO) == 1;
}

/// Asks a question on the terminal and waits for a line. @return whether it says y or yes
bool AskUser(const std::string& question) {
    std::cout << question << " [y/N] " << std::flush;
    std::string answer;
    std::getline(std::cin, answer);
    return answer == "y" || answer == "Y" || answer == "yes";
}

/// What the four commands have in common.
class SettingsCommand : public Command {
protected:
    SettingsCommand(CLI::App& program, const std::string& name, const std::string& description,
                    const std::string& fileDescription)
        : Command(program, name, description) {
        if (!fileDescription.empty()) {
            AddFile("FILE", file, fileDescription)->required();
        }
        AddGripper();
    }

    std::string file;
};

class ShowCommand : public SettingsCommand {
public:
    explicit ShowCommand(CLI::App& program)
        : SettingsCommand(program, "show", "Print all settings of a gripper", "") {
        AddJson();
    }

    ExitStatus Run(Daemon& daemon, Printer& printer) override {
        const GripperSettings settings = Read(Gripper(daemon, ChosenGripper(daemon)));
        json ? printer.Json(ToJson(settings)) : Print(settings, printer);
        WarnOfZeros(settings);
        return ExitStatus::Done;
    }
};

class SaveCommand : public SettingsCommand {
public:
    explicit SaveCommand(CLI::App& program)
        : SettingsCommand(program, "save", "Save all settings of a gripper to FILE",
                          "file to write, JSON") {
        app.get_option("FILE")->check(CheckNoFolder);
        app.add_flag("-y,--yes", yes, "replace any file");
    }

    ExitStatus Run(Daemon& daemon, Printer& printer) override {
        const Gripper gripper(daemon, ChosenGripper(daemon));
        if (!yes) {
            ExpectReplaceable(gripper);
        }
        const GripperSettings settings = Read(gripper);
        ReplaceFile(file, JsonFileText(ToJson(settings)));
        printer.Line(gripper.Name() + ": settings saved to " + file);
        WarnOfZeros(settings);
        return ExitStatus::Done;
    }

private:
    /// The settings of an exchanged gripper must not be lost by "save" instead of "restore".
    /// @throws Failure (Usage)
    void ExpectReplaceable(const Gripper& gripper) const {
        if (!std::filesystem::exists(file)) {
            return;
        }
        std::string reason;
        try {
            const std::string owner = ReadSettingsFile(file).gripper;
            if (owner == gripper.DeviceString()) {
                return;
            }
            reason = file + " has the settings of '" + owner + "'";
        } catch (const Failure& failure) {
            reason = failure.what();
        }
        throw Failure(ExitStatus::Usage, reason + "; to replace the file, add --yes");
    }

    bool yes = false;
};

class DiffCommand : public SettingsCommand {
public:
    explicit DiffCommand(CLI::App& program)
        : SettingsCommand(program, "diff", "Compare the settings of a gripper with FILE",
                          "file of 'settings save'") {
        AddJson();
    }

    ExitStatus Run(Daemon& daemon, Printer& printer) override {
        const GripperSettings saved = ReadSettingsFile(file);
        const Gripper gripper(daemon, ChosenGripper(daemon));
        const GripperSettings found = Read(gripper);
        found.ExpectSameModel(saved, file);
        WarnOfFile(saved, found, file);
        const auto differences = Differences(saved, found);
        if (json) {
            PrintJson(saved, found, differences, printer);
        } else if (differences.empty()) {
            printer.Line(gripper.Name() + ": same as " + file +
                         (saved.checksum == found.checksum ? "" : ", except for the checksum"));
        } else {
            PrintDifferences(differences, "FILE", "GRIPPER", printer);
        }
        return differences.empty() ? ExitStatus::Done : ExitStatus::Refused;
    }

private:
    static void PrintJson(const GripperSettings& saved, const GripperSettings& found,
                          const std::vector<SettingDifference>& differences, Printer& printer) {
        auto list = Json::array();
        for (const auto& [place, inFile, inGripper] : differences) {
            list.push_back({{"setting", place.Name()},
                            {"file", SettingText(*place.setting, inFile)},
                            {"gripper", SettingText(*place.setting, inGripper)}});
        }
        printer.Json({{"gripper", found.gripper},
                      {"sameChecksum", saved.checksum == found.checksum},
                      {"differences", list}});
    }
};

/// Gives a gripper the settings of a file, such as those of the gripper that it replaces.
class RestoreCommand : public SettingsCommand {
public:
    explicit RestoreCommand(CLI::App& program)
        : SettingsCommand(program, "restore", "Give a gripper the settings in FILE",
                          "file of 'settings save'") {
        app.add_flag("-y,--yes", yes, "write without a question");
        app.add_flag("--store", store, "also save them permanently in the gripper");
    }

    ExitStatus Run(Daemon& daemon, Printer& printer) override {
        const GripperSettings wanted = ReadSettingsFile(file);
        if (!yes && !CanAskUser()) {
            throw Failure(ExitStatus::Usage, "no terminal to ask for permission: add --yes");
        }
        const Gripper gripper(daemon, ChosenGripper(daemon));
        SettingsTransfer transfer(gripper);
        const GripperSettings found = Read(transfer);
        found.ExpectSameModel(wanted, file);
        WarnOfFile(wanted, found, file);
        const auto differences = Differences(found, wanted);
        std::string result = "already the same as " + file;
        if (!differences.empty()) {
            PrintDifferences(differences, "NOW", "NEW", printer);
            const std::string count = CountText(differences.size());
            if (!yes && !AskUser("Write " + count + " to " + gripper.Name() + "?")) {
                throw Failure(ExitStatus::Refused, "nothing was written");
            }
            Write(transfer, found, wanted, printer);
            result = count + " written and read back, same as " + file;
        }
        Finish(gripper, daemon.Server(), result, printer);
        return ExitStatus::Done;
    }

private:
    /// @throws Failure unless all settings equal `wanted` at the end
    void Write(SettingsTransfer& transfer, const GripperSettings& found,
               const GripperSettings& wanted, Printer& printer) const {
        GripperSettings after;
        const Interruption interruption;
        const auto withLine = [&](ProgressLine& line) {
            return [&](double part) {
                line(part);
                if (interruption.Token().stop_requested()) {
                    throw Failure(ExitStatus::Interrupted,
                                  Printable(found.gripper) + ": interrupted");
                }
            };
        };
        try {
            {
                ProgressLine line("Writing");
                transfer.Write(found, Differences(found, wanted), withLine(line));
            }
            ProgressLine line("Reading");
            after = transfer.ReadBack(wanted, withLine(line));
        } catch (const Failure&) {
            PrintSteps(transfer.Steps(), wanted, wanted, printer);
            printer.Line("To finish, repeat the command: it writes what still differs.");
            throw;
        }
        const auto rest = Differences(after, wanted);
        if (!rest.empty()) {
            PrintSteps(transfer.Steps(), after, wanted, printer);
            throw Failure(ExitStatus::Refused,
                          Printable(found.gripper) + ": " + CountText(rest.size()) +
                              (rest.size() == 1 ? " differs" : " differ") + " from " + file +
                              (store ? "; nothing was stored" : ""));
        }
    }

    /// @param after the settings at the end, as far as known
    static void PrintSteps(const std::vector<SettingsTransfer::Step>& steps,
                           const GripperSettings& after, const GripperSettings& wanted,
                           Printer& printer) {
        Rows rows;
        std::set<SettingPlace> written;
        for (const auto& step : steps) {
            const auto& [place, from, to] = step.difference;
            written.insert(place);
            rows.push_back({{place.Name()},
                            {SettingText(*place.setting, to)},
                            {ResultText(step, after.Value(place))}});
        }
        for (const auto& [place, from, to] : Differences(after, wanted)) {
            if (!written.contains(place)) {
                rows.push_back({{place.Name()},
                                {SettingText(*place.setting, to)},
                                {"changed meanwhile: is " + SettingText(*place.setting, from)}});
            }
        }
        printer.Table({{"SETTING"}, {"NEW", Align::Right}, {"RESULT"}}, rows);
    }

    static std::string ResultText(const SettingsTransfer::Step& step, int after) {
        const auto& [place, from, to] = step.difference;
        const bool isLost = step.result == SettingsTransfer::Result::Written && after != to;
        return isLost ? "not accepted: is " + SettingText(*place.setting, after)
                      : step.ResultText();
    }

    void Finish(const Gripper& gripper, const Endpoint& server, const std::string& result,
                Printer& printer) const {
        if (!store) {
            printer.Line(gripper.Name() + ": " + result);
            printer.Line("To keep them after power-off: " + CommandText("store", gripper, server));
            return;
        }
        const int status = gripper.Command("StoreRemanent", {});
        if (status != 0) {
            throw Failure(ExitStatusFor(status), result + ", but not stored: " +
                                                     gripper.StatusText(status, "StoreRemanent"));
        }
        printer.Line(gripper.Name() + ": " + result + ", stored");
    }

    bool yes = false;
    bool store = false;
};

}  // namespace

std::vector<std::unique_ptr<Command>> MakeSettingsCommands(CLI::App& program) {
    CLI::App& settings =
        AddParent(program, "settings", "Show, save, compare or restore all settings",
                  "show, save, diff or restore");
    std::vector<std::unique_ptr<Command>> commands;
    commands.push_back(std::make_unique<ShowCommand>(settings));
    commands.push_back(std::make_unique<SaveCommand>(settings));
    commands.push_back(std::make_unique<DiffCommand>(settings));
    commands.push_back(std::make_unique<RestoreCommand>(settings));
    return commands;
}

}  // namespace tavrik
