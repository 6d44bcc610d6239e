#include "tools/commands/MotionCommand.h"

#include <cmath>
#include <nlohmann/json.hpp>

#include "tools/Arguments.h"
#include "tools/Failure.h"
#include "tools/StatusText.h"

namespace tavrikctl {

namespace {
constexpr double kUsualWait = 30;      // s
constexpr double kLongestWait = 3600;  // s
}  // namespace

MotionCommand::MotionCommand(CLI::App& program, const Motion& aMotion)
    : Command(program, aMotion.name, aMotion.description), motion(aMotion), seconds(kUsualWait) {
    if (motion.argument == Motion::Argument::OnOff) {
        app.add_option("SWITCH", onOff, "on or off")->required();
    }
    AddGripper(gripperName);
    if (motion.argument == Motion::Argument::Set) {
        AddSetNumber(set);
    }
    if (motion.moves) {
        AddWaiting();
    }
    AddJson(json);
}

void MotionCommand::AddWaiting() {
    auto* const flag = app.add_flag("--wait", wait, "return when the gripper has come to rest");
    app.add_option("--within", seconds, "seconds that this may take (30 if not given)")
        ->check(CLI::Range(0.0, kLongestWait))
        ->needs(flag)
        ->option_text("SECONDS");
}

ExitStatus MotionCommand::Run(Daemon& daemon, Printer& printer) {
    const xmlrpc_c::carray arguments = Arguments();
    const Gripper gripper(daemon, daemon.FindGripper(gripperName));
    const int status = gripper.Command(motion.method, arguments);
    if (status != 0) {
        throw Failure(ExitStatusOf(status), gripper.StatusText(status));
    }
    std::string text = gripper.StatusText(status);
    nlohmann::ordered_json object{{"gripper", gripper.DeviceString()}, {"status", status}};
    if (wait) {
        constexpr double kMillisecondsPerSecond = 1000;
        const ProcessData data = gripper.AwaitRest(
            std::chrono::milliseconds(std::llround(seconds * kMillisecondsPerSecond)));
        data.AddTo(object);
        const std::string flags = data.FlagText();
        text += ", at rest at " + HundredthsText(data.position) + " in state " +
                std::to_string(data.state) + (flags.empty() ? "" : ", " + flags);
    }
    json ? printer.Json(object) : printer.Line(text);
    return ExitStatus::Done;
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

}  // namespace tavrikctl
