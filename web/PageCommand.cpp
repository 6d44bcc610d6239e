#include "web/PageCommand.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <nlohmann/json.hpp>
#include <thread>

#include "client/Failure.h"
#include "client/GripperSettings.h"
#include "client/Printable.h"
#include "client/Values.h"

namespace tavrik {

namespace {

using nlohmann::json;
using nlohmann::ordered_json;

/// Within this time, replies to earlier requests have arrived.
constexpr std::chrono::milliseconds kLateReplies(100);

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

/// A value that was read in words, like SettingText().
std::string ValueText(const Setting& setting, const ordered_json& value) {
    const auto check = [&](bool isExpected) {
        if (!isExpected) {
            throw Failure(ExitStatus::BadAnswer,
                          std::string(setting.getter) + ": the reply has an unexpected type");
        }
    };
    switch (setting.kind) {
        case Setting::Kind::Limit:
            check(value.is_number());
            return HundredthsText(value.get<double>());
        case Setting::Kind::Flag:
            check(value.is_boolean());
            return OnOffText(value.get<bool>());
        default:
            check(value.is_number_integer());
            return value.dump();
    }
}

std::string ReadSettingText(const Gripper& gripper, const Setting& setting,
                            const xmlrpc_c::carray& place) {
    return ValueText(setting, ToJson(gripper.ReadSetting(std::string(setting.getter), place)));
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
    setting = &FindSetting(TextOf(request, "setting"));
    if (setting->setter.empty()) {
        throw Failure(ExitStatus::Usage, std::string(setting->name) + " cannot be set");
    }
    method = setting->setter;
    text = setting->name;
    if (setting->place != Setting::Place::Gripper) {
        const bool isSet = setting->place == Setting::Place::Set;
        const int number = NumberOf(request, "number", isSet ? kSetCount - 1 : kLedCount - 1);
        place.push_back(xmlrpc_c::value_int(number));
        text += (isSet ? " of set " : " of LED ") + std::to_string(number);
    }
    const std::string entered = TextOf(request, "value");
    arguments = place;
    arguments.push_back(ParseSetting(*setting, entered));
    value = SettingText(*setting, entered);
    text += " = " + value;
}

int PageCommand::Run(const Gripper& gripper) const {
    return gripper.Command(method, arguments);
}

void PageCommand::Confirm(const Gripper& gripper) const {
    if (setting == nullptr || setting->getter.empty()) {
        return;
    }
    std::string reported = ReadSettingText(gripper, *setting, place);
    if (reported != value) {
        // A late reply to the setter also ends a read, which then returns the old value.
        std::this_thread::sleep_for(kLateReplies);
        reported = ReadSettingText(gripper, *setting, place);
    }
    if (reported != value) {
        throw Failure(ExitStatus::Refused, "the gripper reports " + reported);
    }
}

}  // namespace tavrik
