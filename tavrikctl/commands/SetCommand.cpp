#include "tavrikctl/commands/SetCommand.h"

#include <chrono>
#include <nlohmann/json.hpp>
#include <thread>

#include "client/Failure.h"
#include "client/StatusText.h"

namespace tavrik {

namespace {

/// Within this time, replies to requests of the past have come.
constexpr std::chrono::milliseconds kLateReplies(100);

}  // namespace

SetCommand::SetCommand(CLI::App& program)
    : SettingCommand(program, "set", "Change a setting of the gripper") {
    app.add_option("VALUE", value, "new value, see below")->required();
    AddGripper();
    AddNumbers();
}

ExitStatus SetCommand::Run(Daemon& daemon, Printer& printer) {
    const Setting& setting = ChosenSetting();
    if (setting.setter.empty()) {
        throw Failure(ExitStatus::Usage, settingName + " cannot be set");
    }
    xmlrpc_c::carray arguments = Numbers(setting);
    arguments.push_back(ParseSetting(setting, value));
    const Gripper gripper(daemon, ChosenGripper(daemon));
    const int status = gripper.Command(std::string(setting.setter), arguments);
    if (status != 0) {
        throw Failure(ExitStatusOf(status), gripper.StatusText(status));
    }
    const std::string text = SettingText(setting, value);
    const bool isReadable = !setting.getter.empty();
    if (isReadable) {
        Confirm(setting, gripper, text);
    }
    printer.Line(Title(setting, gripper) + " set to " + text +
                 (isReadable ? "" : ", not confirmed: it cannot be read back"));
    return ExitStatus::Done;
}

void SetCommand::Confirm(const Setting& setting, const Gripper& gripper,
                         const std::string& text) const {
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
        // A late reply to the setter ends a reading as well, which then answers the value before.
        std::this_thread::sleep_for(kLateReplies);
        reported = read();
    }
    if (ValueText(setting, reported) != text) {
        throw Failure(ExitStatus::Refused, gripper.Name() + ": failed to set " + NameOf(setting) +
                                               " to " + text + ": the gripper reports " +
                                               ValueText(setting, reported) +
                                               (IsCertain(reported) ? "" : ", or cannot be read"));
    }
}

}  // namespace tavrik
