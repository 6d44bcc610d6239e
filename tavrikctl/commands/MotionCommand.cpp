#include <nlohmann/json.hpp>
#include <xmlrpc-c/base.hpp>

#include "client/Gripper.h"
#include "client/Values.h"
#include "tavrikctl/commands/Command.h"

namespace tavrik {

namespace {

class MotionCommand : public Command {
public:
    MotionCommand(CLI::App& program, const Motion& motion)
        : Command(program, motion.name, motion.description), motion(motion) {
        if (motion.argument == Motion::Argument::OnOff) {
            app.add_option("SWITCH", onOff, "on or off")->required();
        }
        AddGripper();
        if (motion.argument == Motion::Argument::Set) {
            AddSetNumber(set);
        }
        if (motion.moves) {
            auto* const flag =
                app.add_flag("--wait", wait, "wait until the gripper has come to rest");
            AddTimeOption(app, "--within", limit,
                          "time limit of --wait, 0.001 to 3600 s (default: 30)")
                ->needs(flag);
        }
        AddJson();
    }

    ExitStatus Run(Daemon& daemon, Printer& printer) override {
        const xmlrpc_c::carray arguments = Arguments();
        const Gripper gripper(daemon, ChosenGripper(daemon));
        const ProcessData before = wait ? gripper.ReadProcessData() : ProcessData(0);
        const int status = gripper.Command(motion.method, arguments);
        std::string text = gripper.StatusText(status);
        if (status != 0) {
            throw Failure(ExitStatusFor(status), text);
        }
        nlohmann::ordered_json object{{"gripper", gripper.DeviceString()}, {"status", status}};
        bool isFaulty = false;
        if (wait) {
            const ProcessData rest = gripper.AwaitRest(before, limit);
            isFaulty = rest.fault || rest.tempFault;
            const bool changed = rest.state != before.state ||
                                 RestDetector::IsMotion(before.position, rest.position);
            rest.AddTo(object);
            object["changed"] = changed;
            const std::string flags = rest.FlagText();
            text += std::string(changed ? "" : ", but nothing changed") + ", at rest at " +
                    HundredthsText(rest.position) + " in state " + std::to_string(rest.state) +
                    (flags.empty() ? "" : ", " + flags);
        }
        if (json) {
            printer.Json(object);
        } else if (!isFaulty) {
            printer.Line(text);
        }
        if (isFaulty) {
            throw Failure(ExitStatus::Faulty, text);
        }
        return ExitStatus::Done;
    }

private:
    /// The parameters after the device string.
    xmlrpc_c::carray Arguments() const {
        switch (motion.argument) {
            case Motion::Argument::Set:
                return {xmlrpc_c::value_int(set)};
            case Motion::Argument::OnOff:
                return {xmlrpc_c::value_boolean(ParseBoolean(onOff))};
            default:
                return {};
        }
    }

    const Motion motion;
    std::string onOff;
    int set = 0;
    bool wait = false;
    std::chrono::milliseconds limit = std::chrono::seconds(30);  // of waiting
};

}  // namespace

std::unique_ptr<Command> MakeMotionCommand(CLI::App& program, const Motion& motion) {
    return std::make_unique<MotionCommand>(program, motion);
}

}  // namespace tavrik
