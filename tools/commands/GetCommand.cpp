#include "tools/commands/GetCommand.h"

#include <nlohmann/json.hpp>

#include "tools/Failure.h"
#include "tools/JsonValue.h"

namespace tavrikctl {

namespace {

std::string Text(const Setting& setting, const nlohmann::ordered_json& value) {
    return setting.kind == Setting::Kind::Limit ? HundredthsText(value.get<double>())
                                                : value.dump();
}

}  // namespace

GetCommand::GetCommand(CLI::App& program)
    : SettingCommand(program, "get", "Read a setting of the gripper") {
    AddGripper(gripperName);
    AddNumbers();
    AddJson(json);
}

ExitStatus GetCommand::Run(Daemon& daemon, Printer& printer) {
    const Setting& setting = ChosenSetting();
    if (setting.getter.empty()) {
        throw Failure(ExitStatus::Usage, settingName + " cannot be read");
    }
    const Gripper gripper(daemon, daemon.FindGripper(gripperName));
    const auto value = ToJson(gripper.ReadSetting(std::string(setting.getter), Numbers(setting)));
    const bool certain = value != 0 && value != false;
    if (json) {
        nlohmann::ordered_json object{{"gripper", gripper.DeviceString()},
                                      {"setting", settingName}};
        if (setting.place == Setting::Place::Set) {
            object["set"] = set;
        } else if (setting.place == Setting::Place::Led) {
            object["led"] = led;
        }
        object["value"] = value;
        object["certain"] = certain;
        printer.Json(object);
    } else {
        printer.Line(Title(setting, gripper) + " is " + Text(setting, value) +
                     (certain ? "" : ", or the gripper has no such setting"));
    }
    return ExitStatus::Done;
}

}  // namespace tavrikctl
