#include "tavrikctl/commands/MotionCommand.h"

#include <nlohmann/json.hpp>

#include "client/Failure.h"
#include "client/RestDetector.h"
#include "client/StatusText.h"
#include "client/ValueText.h"
#include "tavrikctl/Options.h"

namespace tavrik {

MotionCommand::MotionCommand(CLI::App& program, const Motion& aMotion)
    : Command(program, aMotion.name, aMotion.description), motion(aMotion) {
    if (motion.argument == Motion::Argument::OnOff) {
        app.add_option("SWITCH", onOff, "on or off")->required();
    }
    AddGripper();
    if (motion.argument == Motion::Argument::Set) {
        AddSetNumber(set);
    }
    if (motion.moves) {
        AddWaiting();
    }
    AddJson(json);
}

void MotionCommand::AddWaiting() {
    auto* const flag = app.add_flag("--wait", wait, "wait until the gripper has come to rest");
    AddTimeOption(app, "--within", limit, "time limit of --wait, 0.001 to 3600 s (default: 30)")
        ->needs(flag);
}

ExitStatus MotionCommand::Run(Daemon& daemon, Printer& printer) {
    const xmlrpc_c::carray arguments = Arguments();
    const Gripper gripper(daemon, ChosenGripper(daemon));
    const ProcessData before = wait ? gripper.ReadProcessData() : ProcessData(0);
    const int status = gripper.Command(motion.method, arguments);
    if (status != 0) {
        throw Failure(ExitStatusOf(status), gripper.StatusText(status));
    }
    const std::string text = gripper.StatusText(status);
    nlohmann::ordered_json object{{"gripper", gripper.DeviceString()}, {"status", status}};
    if (wait) {
        const ProcessData data = gripper.AwaitRest(before, limit);
        const bool changed =
            data.state != before.state || RestDetector::IsMotion(before.position, data.position);
        data.AddTo(object);
        object["changed"] = changed;
        Tell(data, text + (changed ? "" : ", but nothing changed"), object, printer);
    } else {
        json ? printer.Json(object) : printer.Line(text);
    }
    return ExitStatus::Done;
}

void MotionCommand::Tell(const ProcessData& rest, const std::string& outcome,
                         const nlohmann::ordered_json& object, Printer& printer) const {
    const bool isFaulty = rest.fault || rest.tempFault;
    const std::string flags = rest.FlagText();
    const std::string text = outcome + ", at rest at " + HundredthsText(rest.position) +
                             " in state " + std::to_string(rest.state) +
                             (flags.empty() ? "" : ", " + flags);
    if (json) {
        printer.Json(object);
    } else if (!isFaulty) {
        printer.Line(text);
    }
    if (isFaulty) {
        throw Failure(ExitStatus::Faulty, text);
    }
}

xmlrpc_c::carray MotionCommand::Arguments() const {
    switch (motion.argument) {
        case Motion::Argument::Set:
            return {xmlrpc_c::value_int(set)};
        case Motion::Argument::OnOff:
            return {xmlrpc_c::value_boolean(ParseBoolean(onOff))};
        default:
            return {};
    }
}

}  // namespace tavrik
