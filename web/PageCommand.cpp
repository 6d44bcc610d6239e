#include "web/PageCommand.h"

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>

#include "client/Failure.h"
#include "client/SettingsTransfer.h"
#include "client/Values.h"

namespace tavrik {

namespace {

using nlohmann::json;

struct Motion {
    std::string_view name;
    std::string_view method;
    enum class Argument { None, Set, OnOff } argument = Argument::None;
    bool moves = false;
};

constexpr std::array kMotions{
    Motion{"grip", "Grip", Motion::Argument::Set, true},
    Motion{"release", "Release", Motion::Argument::Set, true},
    Motion{"reference", "Reference", Motion::Argument::None, true},
    Motion{"disable", "Disable"},
    Motion{"holdfast", "Holdfast", Motion::Argument::OnOff},
    Motion{"store", "StoreRemanent"},
};

Failure Invalid(const std::string& member) {
    return {ExitStatus::Usage, "invalid or missing '" + member + "'"};
}

std::string TextOf(const json& request, const char* member) {
    const auto place = request.find(member);
    if (place == request.end() || !place->is_string()) {
        throw Invalid(member);
    }
    return place->get<std::string>();
}

int NumberOf(const json& request, const char* member, int largest) {
    const auto place = request.find(member);
    if (place == request.end() || !place->is_number_integer() || *place < 0 || *place > largest) {
        throw Invalid(member);
    }
    return place->get<int>();
}

}  // namespace

PageCommand::PageCommand(const json& request) {
    if (!request.is_object()) {
        throw Failure(ExitStatus::Usage, "not an object");
    }
    device = TextOf(request, "gripper");
    const std::string name = TextOf(request, "command");
    if (name == "set") {
        TakeSetting(request);
    } else {
        TakeMotion(name, request);
    }
}

void PageCommand::TakeMotion(std::string_view name, const json& request) {
    const auto* const motion = std::ranges::find(kMotions, name, &Motion::name);
    if (motion == kMotions.end()) {
        throw Invalid("command");
    }
    method = motion->method;
    moves = motion->moves;
    text = name;
    if (motion->argument == Motion::Argument::Set) {
        const int set = NumberOf(request, "set", kSetCount - 1);
        arguments.push_back(xmlrpc_c::value_int(set));
        text += ", set " + std::to_string(set);
    } else if (motion->argument == Motion::Argument::OnOff) {
        const auto place = request.find("on");
        if (place == request.end() || !place->is_boolean()) {
            throw Invalid("on");
        }
        arguments.push_back(xmlrpc_c::value_boolean(place->get<bool>()));
        text += " " + OnOffText(place->get<bool>());
    }
}

void PageCommand::TakeSetting(const json& request) {
    const Setting& setting = FindSetting(TextOf(request, "setting"));
    if (setting.setter.empty()) {
        throw Failure(ExitStatus::Usage, std::string(setting.name) + " cannot be set");
    }
    place.setting = &setting;
    if (setting.place != Setting::Place::Gripper) {
        const bool isSet = setting.place == Setting::Place::Set;
        place.number = NumberOf(request, "number", isSet ? kSetCount - 1 : kLedCount - 1);
    }
    method = setting.setter;
    arguments = place.Parameters();
    const std::string entered = TextOf(request, "value");
    arguments.push_back(ParseSetting(setting, entered));
    value = SettingText(setting, entered);
    text = place.Name() + " = " + value;
}

int PageCommand::Run(const Gripper& gripper) const {
    return gripper.Command(method, arguments);
}

void PageCommand::Confirm(const Gripper& gripper) const {
    if (place.setting == nullptr || place.setting->getter.empty()) {
        return;
    }
    const std::string reported = ValueText(*place.setting, ReadBack(gripper, place, value));
    if (reported != value) {
        throw Failure(ExitStatus::Refused, "the gripper reports " + reported);
    }
}

}  // namespace tavrik
