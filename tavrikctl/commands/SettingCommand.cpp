#include <nlohmann/json.hpp>
#include <xmlrpc-c/base.hpp>

#include "client/Gripper.h"
#include "client/SettingsTransfer.h"
#include "tavrikctl/commands/Command.h"

namespace tavrik {

namespace {

using Json = nlohmann::ordered_json;
using Place = Setting::Place;

/// The option that selects the parameter set or LED, without its dashes.
std::string NumberName(Place place) {
    return place == Place::Set ? "set" : place == Place::Led ? "led" : "";
}

/// All settings, for the help text.
std::string SettingList() {
    const auto padded = [](std::string text, std::size_t width) {
        text.resize(width, ' ');
        return text;
    };
    constexpr std::size_t kNameWidth = 22;
    constexpr std::size_t kRangeWidth = 20;
    constexpr std::size_t kOptionWidth = 8;
    std::string text =
        "Settings: values, the option that selects a set or LED, and supported models:";
    for (const Setting& setting : Settings()) {
        const std::string option = NumberName(setting.place);
        text += "\n  " + padded(std::string(setting.name), kNameWidth) +
                padded(ValueRange(setting), kRangeWidth) +
                padded(option.empty() ? "" : "--" + option, kOptionWidth) +
                SupportedModels(setting);
    }
    return text + "\n\nLimits are positions in the gripper's unit, in steps of 0.01.\n";
}

/// Whether a value that was read is the gripper's: a failure also returns 0 or off.
bool IsCertain(const Json& value) {
    return value != 0 && value != false;
}

/// What "get" and "set" have in common: the setting, and the number of its parameter set or LED.
class SettingCommand : public Command {
protected:
    SettingCommand(CLI::App& program, const std::string& name, const std::string& description)
        : Command(program, name, description) {
        app.add_option("SETTING", settingName, "see below")->required();
        app.footer(SettingList);
    }

    /// Declares GRIPPER and the options. To be called after the other positional arguments.
    void AddGripperAndNumbers() {
        AddGripper();
        setOption = AddSetNumber(set);
        ledOption = AddNumber("-l,--led", led, kLedCount - 1, "number of the LED");
    }

    /// @throws Failure (Usage), also for a number that the setting does not have
    SettingPlace ChosenPlace() const {
        const Setting& setting = FindSetting(settingName);
        if (setting.place != Place::Set && setOption->count() > 0) {
            throw Failure(ExitStatus::Usage, settingName + " has no parameter sets: omit --set");
        }
        if (setting.place != Place::Led && ledOption->count() > 0) {
            throw Failure(ExitStatus::Usage,
                          settingName + " does not belong to an LED: omit --led");
        }
        return {&setting, setting.place == Place::Led ? led : set};
    }

    std::string settingName;

private:
    int set = 0;
    int led = 0;
    CLI::Option* setOption = nullptr;  // the app's, like the next one
    CLI::Option* ledOption = nullptr;
};

class GetCommand : public SettingCommand {
public:
    explicit GetCommand(CLI::App& program)
        : SettingCommand(program, "get", "Read a setting of the gripper") {
        AddGripperAndNumbers();
        AddJson();
    }

    ExitStatus Run(Daemon& daemon, Printer& printer) override {
        const SettingPlace place = ChosenPlace();
        const Setting& setting = *place.setting;
        if (setting.getter.empty()) {
            throw Failure(ExitStatus::Usage, settingName + " cannot be read");
        }
        const Gripper gripper(daemon, ChosenGripper(daemon));
        const Json value = ReadValue(gripper, place);
        const bool certain = IsCertain(value);
        if (json) {
            Json object{{"gripper", gripper.DeviceString()}, {"setting", settingName}};
            if (setting.place != Place::Gripper) {
                object[NumberName(setting.place)] = place.number;
            }
            object["value"] = value;
            object["certain"] = certain;
            printer.Json(object);
        } else {
            printer.Line(gripper.Name() + ": " + place.Name() + " is " + ValueText(setting, value) +
                         (certain ? "" : ", or the gripper does not have this setting"));
        }
        return ExitStatus::Done;
    }
};

/// Changes a setting and reads it back: a status of 0 may belong to an earlier request.
class SetCommand : public SettingCommand {
public:
    explicit SetCommand(CLI::App& program)
        : SettingCommand(program, "set", "Change a setting of the gripper") {
        app.add_option("VALUE", value, "new value, see below")->required();
        AddGripperAndNumbers();
    }

    ExitStatus Run(Daemon& daemon, Printer& printer) override {
        const SettingPlace place = ChosenPlace();
        const Setting& setting = *place.setting;
        if (setting.setter.empty()) {
            throw Failure(ExitStatus::Usage, settingName + " cannot be set");
        }
        xmlrpc_c::carray arguments = place.Parameters();
        arguments.push_back(ParseSetting(setting, value));
        const Gripper gripper(daemon, ChosenGripper(daemon));
        const int status = gripper.Command(std::string(setting.setter), arguments);
        if (status != 0) {
            throw Failure(ExitStatusFor(status),
                          gripper.StatusText(status, std::string(setting.setter)));
        }
        const std::string text = SettingText(setting, value);
        const bool isReadable = !setting.getter.empty();
        if (isReadable) {
            Confirm(gripper, place, text);
        }
        printer.Line(gripper.Name() + ": " + place.Name() + " set to " + text +
                     (isReadable ? "" : ", not confirmed: it cannot be read back"));
        return ExitStatus::Done;
    }

private:
    /// @throws Failure (Refused) when the gripper has another value than `text`
    static void Confirm(const Gripper& gripper, const SettingPlace& place,
                        const std::string& text) {
        Json reported;
        try {
            reported = ReadBack(gripper, place, text);
        } catch (const Failure& failure) {
            throw Failure(failure.Status(),
                          "failed to confirm " + place.Name() + ": " + failure.what());
        }
        const std::string found = ValueText(*place.setting, reported);
        if (found != text) {
            throw Failure(ExitStatus::Refused,
                          gripper.Name() + ": failed to set " + place.Name() + " to " + text +
                              ": the gripper reports " + found +
                              (IsCertain(reported) ? "" : ", or cannot be read"));
        }
    }

    std::string value;
};

}  // namespace

std::unique_ptr<Command> MakeGetCommand(CLI::App& program) {
    return std::make_unique<GetCommand>(program);
}

std::unique_ptr<Command> MakeSetCommand(CLI::App& program) {
    return std::make_unique<SetCommand>(program);
}

}  // namespace tavrik
