#include <nlohmann/json.hpp>
#include <optional>
#include <thread>
#include <xmlrpc-c/base.hpp>

#include "client/Gripper.h"
#include "client/GripperMotion.h"
#include "client/Values.h"
#include "tavrikctl/Interruption.h"
#include "tavrikctl/commands/Command.h"

namespace tavrik {

namespace {

/// How long the drive may take to report that it is off, after an interruption.
constexpr std::chrono::seconds kStopLimit(3);
constexpr int kStopAttempts = 10;
constexpr std::chrono::milliseconds kStopPause(100);

ExitStatus ExitStatusOf(MotionEnd end) {
    switch (end) {
        case MotionEnd::DidNotMove:
        case MotionEnd::Stopped:
        case MotionEnd::NotReported:
            return ExitStatus::DidNotMove;
        case MotionEnd::Faulty:
            return ExitStatus::Faulty;
        case MotionEnd::Moving:
            return ExitStatus::NotAtRest;
        case MotionEnd::Interrupted:
            return ExitStatus::Interrupted;
        case MotionEnd::PartLost:
            return ExitStatus::NotHeld;
        default:
            return ExitStatus::Done;
    }
}

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
        if (motion.kind) {
            AddWaiting();
        }
        AddJson();
    }

    ExitStatus Run(Daemon& daemon, Printer& printer) override {
        const xmlrpc_c::carray arguments = Arguments();
        const Gripper gripper(daemon, ChosenGripper(daemon));
        if (wait) {
            return RunToTheEnd(gripper, daemon.Server(), printer);
        }
        RequireSuccess(gripper, gripper.Command(motion.method, arguments));
        if (json) {
            printer.Json({{"gripper", gripper.DeviceString()}, {"status", 0}});
        } else {
            printer.Line(gripper.Name() + ": " + (motion.kind ? motion.name + " started" : "done"));
        }
        return ExitStatus::Done;
    }

private:
    void AddWaiting() {
        auto* const flag =
            app.add_flag("--wait", wait, "wait for the end of the motion and print the result");
        AddTimeOption(app, "--within", limit, "time limit of --wait, 0.001 to 3600 s (default: 30)")
            ->needs(flag);
        if (motion.kind == MotionKind::Grip) {
            AddTimeOption(app, "--hold-for", holdTime,
                          "then watch the part for this time; fail if it is lost")
                ->needs(flag);
        }
        if (motion.kind != MotionKind::Disable) {
            app.add_flag("--stop-on-interrupt", stopOnInterrupt,
                         "on Ctrl-C during the motion, switch the drive off")
                ->needs(flag)
                ->option_text(" ");
        }
    }

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

    void RequireSuccess(const Gripper& gripper, int status) const {
        if (status != 0) {
            throw Failure(ExitStatusFor(status), gripper.StatusText(status, motion.method));
        }
    }

    /// @param gripper not affected by an interruption
    ExitStatus RunToTheEnd(const Gripper& gripper, const Endpoint& endpoint, Printer& printer) {
        const Interruption interruption;
        Daemon daemon(endpoint, interruption.Token());
        const Gripper interruptible(daemon, gripper.DeviceString());
        MotionResult result = Perform(interruptible, interruption.Token());
        const bool stops = stopOnInterrupt && result.end == MotionEnd::Interrupted && !result.held;
        const std::string text = gripper.Name() + ": " +
                                 (stops ? Stop(gripper, result, endpoint)
                                  : result.end == MotionEnd::Interrupted
                                      ? InterruptionText(gripper, result, endpoint)
                                      : result.Text() + Remedy(result, gripper, endpoint));
        if (json) {
            nlohmann::ordered_json object{{"gripper", gripper.DeviceString()}, {"status", 0}};
            result.AddTo(object);
            printer.Json(object);
        }
        const bool lacksPart = holdTime.count() > 0 && result.end == MotionEnd::NoPart;
        const ExitStatus status = lacksPart ? ExitStatus::NotHeld : ExitStatusOf(result.end);
        if (status != ExitStatus::Done) {
            throw Failure(status, text);
        }
        if (!json) {
            printer.Line(text);
        }
        return status;
    }

    MotionResult Perform(const Gripper& gripper, const std::stop_token& stop) const {
        GripperMotion run(gripper, *motion.kind, set);
        try {
            RequireSuccess(gripper, run.Start());
        } catch (const Failure&) {
            if (!stop.stop_requested()) {
                throw;
            }
            return {*motion.kind, MotionEnd::Interrupted, ProcessData(0), false};
        }
        const MotionResult result = run.AwaitEnd(limit, stop);
        const bool holds = holdTime.count() > 0 && result.end == MotionEnd::Gripped;
        return holds ? run.Hold(result, holdTime, stop) : result;
    }

    static std::string InterruptionText(const Gripper& gripper, const MotionResult& result,
                                        const Endpoint& endpoint) {
        const std::string place = result.data.certain ? ", " + result.PlaceText() : "";
        if (result.held) {  // the motion has ended; without the drive, the part might fall
            return "interrupted while it holds the part" + place;
        }
        return "interrupted, it may still be moving" + place + StopText(gripper, endpoint);
    }

    static std::string StopText(const Gripper& gripper, const Endpoint& endpoint) {
        return "; to stop it: " + CommandText("disable", gripper, endpoint);
    }

    /// Switches the drive off after an interruption.
    /// @param result gets the outcome
    /// @return the outcome in words
    std::string Stop(const Gripper& gripper, MotionResult& result, const Endpoint& endpoint) const {
        const std::string text = "interrupted, ";
        result.isOff = false;
        try {
            GripperMotion disable(gripper, MotionKind::Disable);
            int status = disable.Start();
            for (int again = kStopAttempts - 1;
                 again > 0 && ExitStatusFor(status) == ExitStatus::NotPossible; --again) {
                std::this_thread::sleep_for(kStopPause);  // the daemon may be busy
                status = disable.Start();
            }
            RequireSuccess(gripper, status);
            const MotionResult stop = disable.AwaitEnd(kStopLimit);
            result.isOff = stop.end == MotionEnd::SwitchedOff;
            result.data = stop.data;
            return text + stop.Text();
        } catch (const Failure& failure) {
            return text + "failed to stop it: " + failure.what() + "; it may still be moving" +
                   StopText(gripper, endpoint);
        }
    }

    /// The command that removes the obstacle of the motion, if there is one.
    std::string Remedy(const MotionResult& result, const Gripper& gripper,
                       const Endpoint& endpoint) const {
        const auto remedy = [&](const std::string& command) {
            return "; do: " + CommandText(command, gripper, endpoint);
        };
        switch (result.obstacle) {
            case MotionObstacle::NoReference:
                return remedy("home --wait");
            case MotionObstacle::NeedsChange:
                return remedy("disable");
            case MotionObstacle::OverrideZero:
                return remedy("set override-" + motion.name + " 50");
            default:
                return "";
        }
    }

    const Motion motion;
    std::string onOff;
    int set = 0;
    bool wait = false;
    bool stopOnInterrupt = false;
    std::chrono::milliseconds limit = std::chrono::seconds(30);  // of waiting
    std::chrono::milliseconds holdTime{};
};

}  // namespace

std::unique_ptr<Command> MakeMotionCommand(CLI::App& program, const Motion& motion) {
    return std::make_unique<MotionCommand>(program, motion);
}

}  // namespace tavrik
