#include "tools/commands/SetCommand.h"

#include "tools/Failure.h"
#include "tools/StatusText.h"

namespace tavrikctl {

SetCommand::SetCommand(CLI::App& program)
    : SettingCommand(program, "set", "Change a setting of the gripper") {
    app.add_option("VALUE", value, "its new value, see below")->required();
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
    printer.Line(Title(setting, gripper) + " set to " + SettingText(setting, value));
    return ExitStatus::Done;
}

}  // namespace tavrikctl
