#include "client/GripperSettings.h"

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>
#include <set>
#include <tuple>
#include <utility>

#include "client/Failure.h"
#include "client/GripperModels.h"
#include "client/JsonFile.h"
#include "client/MethodTable.h"
#include "client/Values.h"

namespace tavrik {

namespace {

using Json = nlohmann::json;
using Kind = Setting::Kind;
using Place = Setting::Place;

constexpr const char* kSettingsFormat = "TavrikDaemon gripper settings";
constexpr int kSettingsVersion = 1;
constexpr const char* kSets = "sets";
constexpr const char* kLeds = "leds";

/// The name of the number in an element of "sets" or "leds".
std::string NumberName(Place place) {
    return place == Place::Set ? "set" : "led";
}

/// Whether settings files of `model` have the setting.
bool IsSaved(const std::string& model, const Setting& setting) {
    const bool isCopied = !setting.getter.empty() && !setting.setter.empty();
    return isCopied && MayHave(model, FindMethod(setting.getter)->needs);
}

/// The settings that a set, an LED or the gripper itself has.
std::vector<const Setting*> SettingsAt(Place place, const std::string& model) {
    std::vector<const Setting*> found;
    for (const Setting& setting : Settings()) {
        if (setting.place == place && IsSaved(model, setting)) {
            found.push_back(&setting);
        }
    }
    return found;
}

int Largest(Place place) {
    return place == Place::Gripper ? 1 : place == Place::Set ? kSetCount : kLedCount;
}

Json ToJson(const Setting& setting, int value) {
    switch (setting.kind) {
        case Kind::Flag:
            return value != 0;
        case Kind::Limit:
            return value / kLimitSteps;
        default:
            return value;
    }
}

/// Reads a settings file and names what is wrong with it.
class FileReader {
public:
    FileReader(const std::string& path, Json file) : path(path), file(std::move(file)) {}

    GripperSettings Read() {
        ExpectFormat(file, path, kSettingsFormat, kSettingsVersion);
        settings.gripper = Text("gripper");
        settings.model = Text("model");
        for (const SettingPlace& place : PlacesOf(settings.model)) {
            settings.values[place] = 0;
        }
        std::set<std::string> names{"format", "version", "gripper", "model", "checksum", kSets};
        settings.checksum = Checksum();
        ReadValues(file, "", Place::Gripper, 0, names);
        ReadArray(kSets, Place::Set);
        if (!SettingsAt(Place::Led, settings.model).empty()) {
            ReadArray(kLeds, Place::Led);
            names.insert(kLeds);
        }
        ExpectOnly(names, file, "");
        return settings;
    }

private:
    Failure Invalid(const std::string& reason) const {
        return {ExitStatus::Usage, path + ": " + reason};
    }

    const Json& Member(const Json& object, const std::string& where,
                       const std::string& name) const {
        const auto member = object.find(name);
        if (member == object.end()) {
            throw Invalid(where + "'" + name + "' is missing");
        }
        return *member;
    }

    std::string Text(const std::string& name) const {
        const Json& text = Member(file, "", name);
        if (!text.is_string() || text.get<std::string>().empty()) {
            throw Invalid("'" + name + "' must be a string");
        }
        return text.get<std::string>();
    }

    std::int64_t Checksum() const {
        const Json& number = Member(file, "", "checksum");
        if (!number.is_number_integer()) {
            throw Invalid("'checksum' must be an integer");
        }
        return number.get<std::int64_t>();
    }

    void ReadArray(const std::string& name, Place place) {
        const Json& elements = Member(file, "", name);
        if (!elements.is_array() || elements.size() > static_cast<std::size_t>(Largest(place))) {
            throw Invalid("'" + name + "' must be an array of up to " +
                          std::to_string(Largest(place)));
        }
        if (place == Place::Set && elements.empty()) {
            throw Invalid("set 0 is missing");
        }
        for (std::size_t i = 0; i < elements.size(); ++i) {
            ReadElement(elements[i], name + "[" + std::to_string(i) + "]: ", place,
                        static_cast<int>(i));
        }
    }

    void ReadElement(const Json& element, const std::string& where, Place place, int number) {
        const std::string numberName = NumberName(place);
        if (!element.is_object()) {
            throw Invalid(where + "must be an object");
        }
        if (Member(element, where, numberName) != number) {
            throw Invalid(where + "'" + numberName + "' must be " + std::to_string(number) +
                          ": none may be missing");
        }
        std::set<std::string> names{numberName};
        ReadValues(element, where, place, number, names);
        ExpectOnly(names, element, where);
    }

    /// @param names gets the names of the values
    void ReadValues(const Json& object, const std::string& where, Place place, int number,
                    std::set<std::string>& names) {
        for (const Setting* const setting : SettingsAt(place, settings.model)) {
            const std::string name(setting->name);
            names.insert(name);
            settings.values[{setting, number}] =
                Value(*setting, where, Member(object, where, name));
        }
    }

    int Value(const Setting& setting, const std::string& where, const Json& value) const {
        const std::string what = where + "'" + std::string(setting.name) + "'";
        const bool isFlag = setting.kind == Kind::Flag;
        const bool isLimit = setting.kind == Kind::Limit;
        const bool hasType = isFlag    ? value.is_boolean()
                             : isLimit ? value.is_number()
                                       : value.is_number_integer();
        try {
            if (!hasType) {
                throw Failure(ExitStatus::Usage, "");
            }
            ParseSetting(setting, value.dump());
        } catch (const Failure&) {
            throw Invalid(what + " must be " + (isFlag ? "true or false" : ValueRange(setting)));
        }
        if (isFlag) {
            return value.get<bool>() ? 1 : 0;
        }
        const double steps = value.get<double>() * (isLimit ? kLimitSteps : 1);
        constexpr double kRounding = 1e-6;
        if (std::abs(steps - std::round(steps)) > kRounding) {
            throw Invalid(what + " must have at most two decimals");
        }
        return static_cast<int>(std::lround(steps));
    }

    void ExpectOnly(const std::set<std::string>& names, const Json& object,
                    const std::string& where) const {
        const auto items = object.items();
        const auto unknown = std::find_if(items.begin(), items.end(), [&](const auto& item) {
            return !names.contains(item.key());
        });
        if (unknown != items.end()) {
            throw Invalid(where + "'" + unknown.key() + "' is unknown for model " + settings.model);
        }
    }

    const std::string path;
    const Json file;
    GripperSettings settings;
};

}  // namespace

std::string SettingPlace::Name() const {
    std::string name(setting->name);
    if (setting->place == Place::Gripper) {
        return name;
    }
    return name + (setting->place == Place::Set ? " of set " : " of LED ") + std::to_string(number);
}

xmlrpc_c::carray SettingPlace::Parameters() const {
    if (setting->place == Setting::Place::Gripper) {
        return {};
    }
    return {xmlrpc_c::value_int(number)};
}

bool SettingPlace::operator<(const SettingPlace& other) const {
    return std::tie(setting->place, number, setting) <
           std::tie(other.setting->place, other.number, other.setting);
}

int GripperSettings::Value(const SettingPlace& place) const {
    const auto found = values.find(place);
    return found == values.end() ? 0 : found->second;
}

int GripperSettings::Count(Setting::Place place) const {
    int count = place == Setting::Place::Set ? 1 : 0;
    for (const auto& [each, value] : values) {
        if (each.setting->place == place && value != 0) {
            count = std::max(count, each.number + 1);
        }
    }
    return count;
}

std::string GripperSettings::Product() const {
    return gripper.substr(0, gripper.rfind(" SN:"));
}

void GripperSettings::ExpectSameModel(const GripperSettings& other, const std::string& path) const {
    const auto isVague = [](const std::string& text) {
        return text.ends_with('?') || text.find(" or ") != std::string::npos;
    };
    const bool mayBeSame = isVague(model) || isVague(other.model) || model == other.model;
    if (Product() != other.Product() || !mayBeSame) {
        throw Failure(ExitStatus::NotPossible, path + " has the settings of a '" + other.Product() +
                                                   "', model " + other.model +
                                                   ", but this gripper is a '" + Product() +
                                                   "', model " + model);
    }
}

std::vector<SettingPlace> PlacesOf(const std::string& model) {
    std::vector<SettingPlace> places;
    for (const Place place : {Place::Gripper, Place::Set, Place::Led}) {
        const auto settings = SettingsAt(place, model);
        for (int number = 0; number < Largest(place); ++number) {
            for (const Setting* const setting : settings) {
                places.push_back({setting, number});
            }
        }
    }
    return places;
}

std::vector<SettingPlace> DoubtfulZeros(const GripperSettings& settings) {
    std::vector<SettingPlace> doubtful;
    for (const auto& [place, value] : settings.values) {
        const bool isInUse =
            place.setting->place == Place::Set
                ? place.number < settings.Count(Place::Set)
                : place.setting->place == Place::Gripper && place.setting->kind == Kind::Byte;
        if (value == 0 && isInUse) {
            doubtful.push_back(place);
        }
    }
    return doubtful;
}

std::string SettingText(const Setting& setting, int value) {
    return ValueText(setting, ToJson(setting, value));
}

std::string ValueText(const Setting& setting, const nlohmann::ordered_json& value) {
    switch (setting.kind) {
        case Kind::Flag:
            return OnOffText(value.get<bool>());
        case Kind::Limit:
            return HundredthsText(value.get<double>());
        default:
            return value.dump();
    }
}

std::vector<SettingDifference> Differences(const GripperSettings& from, const GripperSettings& to) {
    std::map<SettingPlace, int> all = from.values;
    all.insert(to.values.begin(), to.values.end());
    std::vector<SettingDifference> differences;
    for (const auto& [place, value] : all) {
        if (from.Value(place) != to.Value(place)) {
            differences.push_back({place, from.Value(place), to.Value(place)});
        }
    }
    return differences;
}

Json ToJson(const GripperSettings& settings) {
    Json json{{"format", kSettingsFormat},     {"version", kSettingsVersion},
              {"gripper", settings.gripper},   {"model", settings.model},
              {"checksum", settings.checksum}, {kSets, Json::array()}};
    if (!SettingsAt(Place::Led, settings.model).empty()) {
        json[kLeds] = Json::array();
    }
    for (const auto& [place, value] : settings.values) {
        const Setting& setting = *place.setting;
        const std::string name(setting.name);
        if (setting.place == Place::Gripper) {
            json[name] = ToJson(setting, value);
        } else if (place.number < settings.Count(setting.place)) {
            Json& element = json[setting.place == Place::Set ? kSets : kLeds]
                                [static_cast<std::size_t>(place.number)];
            element[NumberName(setting.place)] = place.number;
            element[name] = ToJson(setting, value);
        }
    }
    return json;
}

GripperSettings ReadSettingsFile(const std::string& path) {
    return FileReader(path, ReadJsonFile(path)).Read();
}

GripperSettings ParseSettingsFile(const std::string& text, const std::string& path) {
    return FileReader(path, ParseJsonFile(text, path)).Read();
}

}  // namespace tavrik
