#include "doctor/GripperCheck.h"

#include "client/Failure.h"
#include "client/ProcessData.h"
#include "client/ValueText.h"

namespace tavrik {

Findings GripperCheck::Run() {
    try {
        return {Look()};
    } catch (const Failure& failure) {
        status = failure.Status();
        return {{Mark::Wrong, gripper.Name(), failure.what(), "run again: tavrikctl doctor"}};
    }
}

Finding GripperCheck::Look() {
    const ProcessData data = gripper.ReadProcessData();
    if (!gripper.MasterAnswers()) {
        return {Mark::Wrong, gripper.Name(), "its master does not answer",
                "check the master's power and cable, then replug it"};
    }
    if (!data.certain) {
        status = ExitStatus::NoProcessData;
        return {Mark::Unknown, gripper.Name(),
                "its master answers; it is at 0.00 in state 0, or has no process data",
                "unless it is at 0.00 with its drive off: check its cable and power; it may be "
                "starting"};
    }
    status = ExitStatus::Done;
    return Describe(data);
}

Finding GripperCheck::Describe(const ProcessData& data) const {
    const std::string text = "answers: state " + std::to_string(data.state) + ", position " +
                             HundredthsText(data.position);
    const std::string flags = data.FlagText();
    if (!flags.empty()) {
        return {Mark::Wrong, gripper.Name(), text + ", " + flags, "see the gripper's manual"};
    }
    const std::string told = gripper.Model();
    const Model model = NarrowModel(told, gripper.DeviceString());
    if (told == "TLM?" && model.name != "TLM") {
        return {Mark::Unknown, gripper.Name(), text + ", no force: a TLM, or an unknown model",
                "if it is not a TLM: tavrikctl set force N; TavrikDaemon may not know its vendor "
                "or device"};
    }
    return {Mark::Ok, gripper.Name(), text + ", model " + model.Text(), ""};
}

}  // namespace tavrik
