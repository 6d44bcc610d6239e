#include "tavrikctl/commands/GetCommand.h"

#include <nlohmann/json.hpp>

#include "client/Failure.h"

namespace tavrik {

GetCommand::GetCommand(CLI::App& program)
    : SettingCommand(program, "get", "Read a setting of the gripper") {
    AddGripper();
    AddNumbers();
    AddJson(json);
}

ExitStatus GetCommand::Run(Daemon& daemon, Printer& printer) {
    const Setting& setting = ChosenSetting();
    if (setting.getter.empty()) {
        throw Failure(ExitStatus::Usage, settingName + " cannot be read");
    }
    const Gripper gripper(daemon, ChosenGripper(daemon));
    const auto value = Read(setting, gripper);
    const bool certain = IsCertain(value);
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
        printer.Line(Title(setting, gripper) + " is " + ValueText(setting, value) +
                     (certain ? "" : ", or the gripper does not have this setting"));
    }
    return ExitStatus::Done;
}

}  // namespace tavrik
