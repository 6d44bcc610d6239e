#include "client/SettingTable.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "client/Failure.h"
#include "client/GripperModels.h"
#include "client/MethodTable.h"
#include "client/Nearest.h"
#include "client/Printable.h"
#include "client/Values.h"

namespace tavrik {

namespace {

using Kind = Setting::Kind;
using Place = Setting::Place;

constexpr std::array kSettings{
    Setting{"force", "GetForce", "SetForce", Kind::Byte, Place::Set, 3},
    Setting{"no-part-limit", "GetNoPartLimit", "SetNoPartLimit", Kind::Limit, Place::Set, 1},
    Setting{"release-limit", "GetReleaseLimit", "SetReleaseLimit", Kind::Limit, Place::Set, 2},
    Setting{"override-grip", "GetOverrideGrip", "SetOverrideGrip", Kind::Byte, Place::Gripper, 1},
    Setting{"override-release", "GetOverrideRelease", "SetOverrideRelease", Kind::Byte,
            Place::Gripper, 2},
    Setting{"reference-direction", "GetReferenceDirection", "SetReferenceDirection", Kind::Flag,
            Place::Gripper, 3},
    Setting{"led-animation", "GetLEDAnimation", "SetLEDAnimation", Kind::Byte, Place::Led, 1},
    Setting{"led-color", "GetLEDColor", "SetLEDColor", Kind::Byte, Place::Led, 2},
    Setting{"led-speed", "GetLEDSpeed", "SetLEDSpeed", Kind::Byte, Place::Led, 3},
    Setting{"led-preset", "", "SetLEDPreset", Kind::Preset, Place::Gripper},
    Setting{"checksum", "GetParameterChecksum", "", Kind::Checksum, Place::Gripper},
};

constexpr double kSmallestLimit = -327.68;
constexpr double kLargestLimit = 327.67;
constexpr int kLargestByte = 255;
constexpr int kLargestPreset = 7;

Failure OutOfRange(const Setting& setting, const std::string& text) {
    return {ExitStatus::Usage, "invalid " + std::string(setting.name) + " '" + Printable(text) +
                                   "': must be " + ValueRange(setting)};
}

/// The models that support one of the methods of a setting.
std::string ModelsFor(std::string_view method) {
    const Feature needed = FindMethod(method)->needs;
    return needed == Feature::None ? "all" : ModelsWith(needed, ", ");
}

int ParseUpTo(const Setting& setting, const std::string& text, int largest) {
    const int number = ParseInteger(text);
    if (number < 0 || number > largest) {
        throw OutOfRange(setting, text);
    }
    return number;
}

}  // namespace

std::span<const Setting> Settings() {
    return kSettings;
}

const Setting& FindSetting(const std::string& name) {
    const auto* const place = std::ranges::find(kSettings, name, &Setting::name);
    if (place == kSettings.end()) {
        std::vector<std::string> names;
        std::string list;
        for (const Setting& setting : kSettings) {
            names.emplace_back(setting.name);
            list += (list.empty() ? "" : ", ") + names.back();
        }
        const std::string question = DidYouMean(name, names);
        throw Failure(ExitStatus::Usage, "unknown setting '" + Printable(name) + "'" +
                                             (question.empty() ? ";" : question) +
                                             " settings: " + list);
    }
    return *place;
}

std::string SupportedModels(const Setting& setting) {
    const std::string models = ModelsFor(setting.setter.empty() ? setting.getter : setting.setter);
    const std::string text = models == "all" ? "all models" : models;
    if (setting.getter.empty()) {
        return text + "; cannot be read";
    }
    if (setting.setter.empty()) {
        return text + "; cannot be set";
    }
    const std::string readers = ModelsFor(setting.getter);
    return text + (readers == models ? "" : "; read: " + readers);
}

std::string ValueRange(const Setting& setting) {
    switch (setting.kind) {
        case Kind::Flag:
            return "on|off";
        case Kind::Limit:
            return HundredthsText(kSmallestLimit) + " to " + HundredthsText(kLargestLimit);
        case Kind::Preset:
            return "0 to " + std::to_string(kLargestPreset);
        case Kind::Checksum:
            return "signed 32-bit";
        default:
            return "0 to " + std::to_string(kLargestByte);
    }
}

xmlrpc_c::value ParseSetting(const Setting& setting, const std::string& text) {
    switch (setting.kind) {
        case Kind::Flag:
            return xmlrpc_c::value_boolean(ParseBoolean(text));
        case Kind::Limit: {
            const double limit = ParseReal(text);
            if (limit < kSmallestLimit || limit > kLargestLimit) {
                throw OutOfRange(setting, text);
            }
            return xmlrpc_c::value_double(LimitToSend(limit));
        }
        case Kind::Preset:
            return xmlrpc_c::value_int(ParseUpTo(setting, text, kLargestPreset));
        default:
            return xmlrpc_c::value_int(ParseUpTo(setting, text, kLargestByte));
    }
}

std::string SettingText(const Setting& setting, const std::string& text) {
    switch (setting.kind) {
        case Kind::Flag:
            return OnOffText(ParseBoolean(text));
        case Kind::Limit:  // through an integer, to avoid -0.00
            return HundredthsText(static_cast<double>(std::lround(ParseReal(text) * kLimitSteps)) /
                                  kLimitSteps);
        default:
            return std::to_string(ParseInteger(text));
    }
}

double LimitToSend(double limit) {
    constexpr double kInsideStep = 0.2;  // steps; keeps clear of the edge where rounding decides
    const double steps = std::round(limit * kLimitSteps);
    return (steps < 0 ? steps - 1 + kInsideStep : steps) / kLimitSteps;
}

}  // namespace tavrik
