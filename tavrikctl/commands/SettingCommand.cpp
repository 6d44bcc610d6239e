#include "tavrikctl/commands/SettingCommand.h"

#include <nlohmann/json.hpp>

#include "client/Failure.h"
#include "client/JsonValue.h"
#include "client/ProcessData.h"
#include "client/ValueText.h"

namespace tavrik {

using Place = Setting::Place;

namespace {

/// The option that tells which of several is meant.
std::string NumberOption(Place place) {
    switch (place) {
        case Place::Set:
            return "--set";
        case Place::Led:
            return "--led";
        default:
            return "";
    }
}

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

std::string Padded(std::string text, std::size_t width) {
    text.resize(width, ' ');
    return text;
}

/// The settings that there are, for the help text.
std::string SettingList() {
    constexpr std::size_t kNameWidth = 22;
    constexpr std::size_t kRangeWidth = 20;
    constexpr std::size_t kOptionWidth = 8;
    std::string text =
        "Settings: values, the option that selects a set or LED, and supported models:";
    for (const Setting& setting : Settings()) {
        text += "\n  " + Padded(std::string(setting.name), kNameWidth) +
                Padded(ValueRange(setting), kRangeWidth) +
                Padded(NumberOption(setting.place), kOptionWidth) + std::string(setting.models);
    }
    return text + "\n\nLimits are positions in the gripper's unit, in steps of 0.01.";
}

}  // namespace

SettingCommand::SettingCommand(CLI::App& program, const std::string& name,
                               const std::string& description)
    : Command(program, name, description) {
    app.add_option("SETTING", settingName, "see below")->required();
    app.footer(SettingList);
}

void SettingCommand::AddNumbers() {
    constexpr int kLargestLed = 127;
    setOption = AddSetNumber(set);
    ledOption = AddNumber("-l,--led", led, kLargestLed, "number of the LED");
}

const Setting& SettingCommand::ChosenSetting() const {
    const Setting& setting = FindSetting(settingName);
    if (setting.place != Place::Set && setOption->count() > 0) {
        throw Failure(ExitStatus::Usage, settingName + " has no parameter sets: omit --set");
    }
    if (setting.place != Place::Led && ledOption->count() > 0) {
        throw Failure(ExitStatus::Usage, settingName + " does not belong to an LED: omit --led");
    }
    return setting;
}

xmlrpc_c::carray SettingCommand::Numbers(const Setting& setting) const {
    switch (setting.place) {
        case Place::Set:
            return {xmlrpc_c::value_int(set)};
        case Place::Led:
            return {xmlrpc_c::value_int(led)};
        default:
            return {};
    }
}

std::string SettingCommand::NameOf(const Setting& setting) const {
    std::string name(setting.name);
    if (setting.place == Place::Set) {
        name += " of set " + std::to_string(set);
    } else if (setting.place == Place::Led) {
        name += " of LED " + std::to_string(led);
    }
    return name;
}

std::string SettingCommand::Title(const Setting& setting, const Gripper& gripper) const {
    return gripper.Name() + ": " + NameOf(setting);
}

nlohmann::ordered_json SettingCommand::Read(const Setting& setting, const Gripper& gripper) const {
    const std::string getter(setting.getter);
    const auto answer = gripper.ReadSetting(getter, Numbers(setting));
    if (answer.type() != AnswerType(setting.kind)) {
        throw Failure(ExitStatus::BadAnswer, getter + ": the reply has an unexpected type");
    }
    return ToJson(answer);
}

std::string SettingCommand::ValueText(const Setting& setting, const nlohmann::ordered_json& value) {
    switch (setting.kind) {
        case Setting::Kind::Limit:
            return HundredthsText(value.get<double>());
        case Setting::Kind::Flag:
            return OnOffText(value.get<bool>());
        default:
            return value.dump();
    }
}

bool SettingCommand::IsCertain(const nlohmann::ordered_json& value) {
    return value != 0 && value != false;
}

}  // namespace tavrik
