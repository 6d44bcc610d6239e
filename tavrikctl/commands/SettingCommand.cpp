#include <chrono>
#include <nlohmann/json.hpp>
#include <thread>
#include <xmlrpc-c/base.hpp>

#include "client/Gripper.h"
#include "client/SettingTable.h"
#include "client/Values.h"
#include "tavrikctl/commands/Command.h"

namespace tavrik {

namespace {

using Json = nlohmann::ordered_json;
using Kind = Setting::Kind;
using Place = Setting::Place;

/// Within this time, replies to earlier requests have arrived.
constexpr std::chrono::milliseconds kLateReplies(100);

/// The option that selects the parameter set or LED, without its dashes.
std::string NumberName(Place place) {
    return place == Place::Set ? "set" : place == Place::Led ? "led" : "";
}

xmlrpc_c::value::type_t AnswerType(Kind kind) {
    switch (kind) {
        case Kind::Limit:
            return xmlrpc_c::value::TYPE_DOUBLE;
        case Kind::Flag:
            return xmlrpc_c::value::TYPE_BOOLEAN;
        case Kind::Checksum:
            return xmlrpc_c::value::TYPE_I8;
        default:
            return xmlrpc_c::value::TYPE_INT;
    }
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
                std::string(setting.models);
    }
    return text + "\n\nLimits are positions in the gripper's unit, in steps of 0.01.\n";
}

/// A value that was read in words, like SettingText().
std::string ValueText(const Setting& setting, const Json& value) {
    switch (setting.kind) {
        case Kind::Limit:
            return HundredthsText(value.get<double>());
        case Kind::Flag:
            return OnOffText(value.get<bool>());
        default:
            return value.dump();
    }
}

/// Whether a value that was read is the gripper's: a failure also returns 0 or off.
bool IsCertain(const Json& value) {
    return value != 0 && value != false;
}

/// What "get" and "set" have in common: the setting, the number of its parameter set or LED, and
/// how it is read.
class SettingCommand : public Command {
protected:
    SettingCommand(CLI::App& program, const std::string& name, const std::string& description)
        : Command(program, name, description) {
        app.add_option("SETTING", settingName, "see below")->required();
        app.footer(SettingList);
    }

    /// Declares GRIPPER and the options. To be called after the other positional arguments.
    void AddGripperAndNumbers() {
        constexpr int kLargestLed = 127;
        AddGripper();
        setOption = AddSetNumber(set);
        ledOption = AddNumber("-l,--led", led, kLargestLed, "number of the LED");
    }

    /// @throws Failure (Usage), also for a number that the setting does not have
    const Setting& ChosenSetting() const {
        const Setting& setting = FindSetting(settingName);
        if (setting.place != Place::Set && setOption->count() > 0) {
            throw Failure(ExitStatus::Usage, settingName + " has no parameter sets: omit --set");
        }
        if (setting.place != Place::Led && ledOption->count() > 0) {
            throw Failure(ExitStatus::Usage,
                          settingName + " does not belong to an LED: omit --led");
        }
        return setting;
    }

    /// The number of the parameter set or LED.
    int Number(const Setting& setting) const { return setting.place == Place::Led ? led : set; }

    /// The parameters of getter and setter between device string and value.
    xmlrpc_c::carray Numbers(const Setting& setting) const {
        if (setting.place == Place::Gripper) {
            return {};
        }
        return {xmlrpc_c::value_int(Number(setting))};
    }

    /// The setting in words, as in "force of set 0".
    std::string NameOf(const Setting& setting) const {
        if (setting.place == Place::Gripper) {
            return settingName;
        }
        return settingName + (setting.place == Place::Set ? " of set " : " of LED ") +
               std::to_string(Number(setting));
    }

    /// The value of a setting that can be read.
    /// @throws Failure (NoAnswer) when the reply came so late that it is not the gripper's;
    /// (BadAnswer) when it has an unexpected type
    Json Read(const Setting& setting, const Gripper& gripper) const {
        const std::string getter(setting.getter);
        const auto answer = gripper.ReadSetting(getter, Numbers(setting));
        if (answer.type() != AnswerType(setting.kind)) {
            throw Failure(ExitStatus::BadAnswer, getter + ": the reply has an unexpected type");
        }
        return ToJson(answer);
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
        const Setting& setting = ChosenSetting();
        if (setting.getter.empty()) {
            throw Failure(ExitStatus::Usage, settingName + " cannot be read");
        }
        const Gripper gripper(daemon, ChosenGripper(daemon));
        const auto value = Read(setting, gripper);
        const bool certain = IsCertain(value);
        if (json) {
            Json object{{"gripper", gripper.DeviceString()}, {"setting", settingName}};
            if (setting.place != Place::Gripper) {
                object[NumberName(setting.place)] = Number(setting);
            }
            object["value"] = value;
            object["certain"] = certain;
            printer.Json(object);
        } else {
            printer.Line(gripper.Name() + ": " + NameOf(setting) + " is " +
                         ValueText(setting, value) +
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
        const Setting& setting = ChosenSetting();
        if (setting.setter.empty()) {
            throw Failure(ExitStatus::Usage, settingName + " cannot be set");
        }
        xmlrpc_c::carray arguments = Numbers(setting);
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
            Confirm(setting, gripper, text);
        }
        printer.Line(gripper.Name() + ": " + NameOf(setting) + " set to " + text +
                     (isReadable ? "" : ", not confirmed: it cannot be read back"));
        return ExitStatus::Done;
    }

private:
    /// @throws Failure (Refused) when the gripper has another value than `text`
    void Confirm(const Setting& setting, const Gripper& gripper, const std::string& text) const {
        const auto read = [&] {
            try {
                return Read(setting, gripper);
            } catch (const Failure& failure) {
                throw Failure(failure.Status(),
                              "failed to confirm " + NameOf(setting) + ": " + failure.what());
            }
        };
        auto reported = read();
        if (ValueText(setting, reported) != text) {
            // A late reply to the setter also ends a read, which then returns the old value.
            std::this_thread::sleep_for(kLateReplies);
            reported = read();
        }
        if (ValueText(setting, reported) != text) {
            throw Failure(ExitStatus::Refused,
                          gripper.Name() + ": failed to set " + NameOf(setting) + " to " + text +
                              ": the gripper reports " + ValueText(setting, reported) +
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
