#include "tools/commands/GetCommand.h"

#include <nlohmann/json.hpp>

#include "tools/Failure.h"
#include "tools/JsonValue.h"

namespace tavrikctl {

namespace {

xmlrpc_c::value::type_t AnswerType(Setting::Kind kind) {
    switch (kind) {
        case Setting::Kind::Limit:
            return xmlrpc_c::value::TYPE_DOUBLE;
        case Setting::Kind::Flag:
            return xmlrpc_c::value::TYPE_BOOLEAN;
        case Setting::Kind::Checksum:
            return xmlrpc_c::value::TYPE_I8;
        default:
            return xmlrpc_c::value::TYPE_INT;
    }
}

std::string Text(const Setting& setting, const nlohmann::ordered_json& value) {
    switch (setting.kind) {
        case Setting::Kind::Limit:
            return HundredthsText(value.get<double>());
        case Setting::Kind::Flag:
            return OnOffText(value.get<bool>());
        default:
            return value.dump();
    }
}

}  // namespace

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
    const std::string getter(setting.getter);
    const auto answer = gripper.ReadSetting(getter, Numbers(setting));
    if (answer.type() != AnswerType(setting.kind)) {
        throw Failure(ExitStatus::BadAnswer, getter + ": the answer has an unexpected type");
    }
    const auto value = ToJson(answer);
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
