#include "doctor/LinkCheck.h"

#include <algorithm>
#include <array>

namespace tavrik {

namespace {

struct Mode {
    const char* text;
    const char* remedy;  // empty if all is well
};

constexpr const char* kStarts = "wait; if this persists, the gripper or its master is faulty";
constexpr const char* kLookAtGripper = "check the gripper's cable and power";

constexpr std::array kModes{
    Mode{"none", kLookAtGripper}, Mode{"looking for a gripper", kLookAtGripper},
    Mode{"startup", kStarts},     Mode{"preoperate", kStarts},
    Mode{"operate", ""},          Mode{"fallback", kLookAtGripper},
    Mode{"block mode", kStarts},  Mode{"power fault", "check the gripper's power supply"}};

Mode ModeOf(int number) {
    const bool isKnown = number >= 0 && number < static_cast<int>(kModes.size());
    return isKnown ? kModes.at(static_cast<std::size_t>(number)) : Mode{"unknown", kStarts};
}

Finding Judge(const std::string& node, const LoggedMaster& master) {
    if (!master.failure.empty()) {
        return {Mark::Wrong, node, "log: " + master.failure,
                "check the master's power and which programs have its tty open, then replug it"};
    }
    const std::string id = "log: ID " + (master.id ? "\"" + *master.id + "\"" : "unknown");
    if (master.id && *master.id != "PELLIX" && *master.id != "MARROK-7") {
        return {Mark::Wrong, node, id + R"(, not "PELLIX" or "MARROK-7")",
                "not a supported master: TavrikDaemon does not list it"};
    }
    if (!master.mode) {
        return {Mark::Unknown, node, id + ", mode unknown", ""};
    }
    const Mode mode = ModeOf(*master.mode);
    const bool isWell = *mode.remedy == '\0';
    return {isWell ? Mark::Ok : Mark::Wrong, node,
            id + ", mode " + std::to_string(*master.mode) + ", " + mode.text, mode.remedy};
}

}  // namespace

Findings LinkCheck::Run() const {
    Findings findings;
    for (const UsbTty& tty : host.ttys) {
        if (const LoggedMaster* const master = log.Find(tty.node)) {
            findings.push_back(Judge(tty.node, *master));
        }
    }
    const bool isThere = std::any_of(host.ttys.begin(), host.ttys.end(),
                                     [](const UsbTty& tty) { return tty.IsMaster(); });
    if (findings.empty() && missed && isThere) {
        return {{Mark::Unknown, "log", "the journal does not have the IDs and modes of the masters",
                 "run as root: tavrikctl doctor; or read the log where TavrikDaemon writes it"}};
    }
    return findings;
}

}  // namespace tavrik
