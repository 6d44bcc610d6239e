#include "web/PageSettings.h"

#include <algorithm>
#include <exception>
#include <nlohmann/json.hpp>
#include <vector>

#include "client/Failure.h"
#include "client/JsonFile.h"
#include "client/SettingsTransfer.h"

namespace tavrik {

namespace {

using nlohmann::ordered_json;
using Place = Setting::Place;
using Differing = std::vector<SettingDifference>;

constexpr std::string_view kReading = "reading";

/// Reports the progress of SettingsTransfer as that of `step`.
SettingsTransfer::Progress StepOf(const PageProgress& progress, std::string_view step) {
    return [&progress, step](double part) { progress(step, part); };
}

ordered_json Column(const Setting& setting) {
    return {{"setting", setting.name},
            {"range", ValueRange(setting)},
            {"canSet", !setting.setter.empty()}};
}

/// A table with a row for each parameter set or LED; the gripper itself has one row.
ordered_json Table(const GripperSettings& settings, Place place) {
    ordered_json columns = ordered_json::array();
    ordered_json rows = ordered_json::array();
    int number = -1;
    for (const auto& [each, value] : settings.values) {
        if (each.setting->place != place) {
            continue;
        }
        if (each.number == 0) {
            columns.push_back(Column(*each.setting));
        }
        if (each.number != number) {
            number = each.number;
            rows.push_back(ordered_json::array());
        }
        rows.back().push_back(SettingText(*each.setting, value));
    }
    return {{"columns", columns}, {"rows", rows}, {"used", settings.Count(place)}};
}

ordered_json ToPage(const GripperSettings& settings) {
    ordered_json own = Table(settings, Place::Gripper);
    const ordered_json leds = Table(settings, Place::Led);
    if (!leds["rows"].empty()) {
        own["columns"].push_back(Column(FindSetting("led-preset")));
        own["rows"][0].push_back(nullptr);  // cannot be read
    }
    own["columns"].push_back(Column(FindSetting("checksum")));
    own["rows"][0].push_back(std::to_string(settings.checksum));
    return {{"ok", true},
            {"settings",
             {{"model", settings.model},
              {"gripper", own},
              {"sets", Table(settings, Place::Set)},
              {"leds", leds}}},
            {"file", JsonFileText(ToJson(settings))}};
}

/// @param transfer for the results of its writes; null if nothing was written
ordered_json DifferencesJson(const Differing& differences, const SettingsTransfer* transfer) {
    ordered_json list = ordered_json::array();
    for (const auto& [place, from, to] : differences) {
        list.push_back({{"name", place.Name()},
                        {"from", SettingText(*place.setting, from)},
                        {"to", SettingText(*place.setting, to)},
                        {"result", ""}});
        if (transfer != nullptr) {
            const auto step = std::ranges::find(transfer->Steps(), place.Name(), [](auto& each) {
                return each.difference.place.Name();
            });
            list.back()["result"] = step == transfer->Steps().end() ? "" : step->ResultText();
        }
    }
    return list;
}

/// How many settings a failed restore has written.
std::string WrittenText(const SettingsTransfer& transfer) {
    using Result = SettingsTransfer::Result;
    const auto count = [&](Result result) {
        return std::ranges::count(transfer.Steps(), result, &SettingsTransfer::Step::result);
    };
    const auto unknown = count(Result::Unknown);
    return std::to_string(count(Result::Written)) + " of " +
           std::to_string(transfer.Steps().size()) + " settings were written" +
           (unknown == 0 ? "" : ", " + std::to_string(unknown) + " may have been");
}

std::string LogText(const SettingsTransfer::Step& step) {
    const auto& [place, from, to] = step.difference;
    return place.Name() + " = " + SettingText(*place.setting, to) + ": " + step.ResultText();
}

/// Logs each write when it has been made, and those that are not made at the end.
void WriteLogged(SettingsTransfer& transfer, const GripperSettings& before,
                 const Differing& differences, const SettingsTransfer::Progress& progress,
                 const std::function<void(const std::string&)>& log) {
    std::size_t logged = 0;
    const auto logNext = [&] { log(LogText(transfer.Steps()[logged++])); };
    try {
        transfer.Write(before, differences, [&](double part) {
            logNext();
            progress(part);
        });
    } catch (...) {  // also what the XML-RPC library throws
        while (logged < transfer.Steps().size()) {
            logNext();
        }
        throw;
    }
}

}  // namespace

ordered_json ReadPageSettings(const Gripper& gripper, const PageProgress& progress) {
    return ToPage(SettingsTransfer(gripper).Read(StepOf(progress, kReading)));
}

ordered_json ComparePageSettings(const Gripper& gripper, const GripperSettings& wanted,
                                 const std::string& name, const PageProgress& progress) {
    const GripperSettings found = SettingsTransfer(gripper).Read(StepOf(progress, kReading));
    found.ExpectSameModel(wanted, name);
    ordered_json answer = ToPage(found);
    answer["differences"] = DifferencesJson(Differences(found, wanted), nullptr);
    return answer;
}

ordered_json RestorePageSettings(const Gripper& gripper, const GripperSettings& wanted,
                                 const std::string& name, const std::function<void()>& check,
                                 const std::function<void(const std::string&)>& log,
                                 const PageProgress& progress) {
    SettingsTransfer transfer(gripper);
    const GripperSettings found = transfer.Read(StepOf(progress, kReading));
    found.ExpectSameModel(wanted, name);
    const auto checkNext = [&](double part) {
        progress("writing", part);
        if (part < 1) {  // of the writes: another one follows
            check();
        }
    };
    check();
    GripperSettings after;
    try {
        WriteLogged(transfer, found, Differences(found, wanted), checkNext, log);
        after = transfer.ReadBack(wanted, StepOf(progress, "reading back"));
    } catch (const std::exception& failure) {  // also what the XML-RPC library throws
        throw Failure(ExitStatus::Failed,
                      std::string(failure.what()) + "; " + WrittenText(transfer));
    }
    ordered_json answer = ToPage(after);
    answer["differences"] = DifferencesJson(Differences(after, wanted), &transfer);
    return answer;
}

}  // namespace tavrik
