#include "tools/commands/MotionCommands.h"

#include <utility>

#include "tools/Failure.h"
#include "tools/Printable.h"
#include "tools/StatusText.h"

namespace tavrikctl {

MotionCommand::MotionCommand(CLI::App& program, const std::string& name,
                             const std::string& description, std::string methodName)
    : Command(program, name, description), method(std::move(methodName)) {
    app.add_option("GRIPPER", gripperName,
                   "its device string or a part of it; not needed when there is only one");
}

ExitStatus MotionCommand::Run(Daemon& daemon, Printer& printer) {
    const std::string gripper = daemon.FindGripper(gripperName);
    const int status = Call(daemon, gripper);
    const std::string text = Printable(gripper) + ": " + StatusText(status);
    if (status != 0) {
        throw Failure(ExitStatusOf(status), text);
    }
    printer.Line(text);
    return ExitStatus::Done;
}

int MotionCommand::Call(Daemon& daemon, const std::string& gripper) {
    return daemon.Get<int>(method, gripper);
}

SetMotionCommand::SetMotionCommand(CLI::App& program, const std::string& name,
                                   const std::string& description, std::string methodName)
    : MotionCommand(program, name, description, std::move(methodName)) {
    constexpr int kLargestSet = 31;
    app.add_option("-s,--set", set, "number of the parameter set, 0 if not given")
        ->check(CLI::Range(0, kLargestSet));
}

int SetMotionCommand::Call(Daemon& daemon, const std::string& gripper) {
    return daemon.Get<int>(method, gripper, set);
}

}  // namespace tavrikctl
