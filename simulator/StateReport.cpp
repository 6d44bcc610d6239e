#include "simulator/StateReport.h"

#include <cmath>
#include <limits>
#include <nlohmann/json.hpp>
#include <string_view>

#include "simulator/TextTools.h"

namespace simulator {

namespace {

using Json = nlohmann::ordered_json;

/// Maps each byte to the character with the same number: the text need not be UTF-8.
std::string Text(std::string_view bytes) {
    std::string utf8;
    for (const char character : bytes) {
        const auto byte = static_cast<unsigned char>(character);
        if (byte < 0x80) {
            utf8 += character;
        } else {
            utf8 += {static_cast<char>(0xc0U | byte >> 6U), static_cast<char>(0x80U | byte % 64U)};
        }
    }
    return utf8;
}

/// Formats a whole number without a fraction: 10, not 10.0.
Json Number(double number) {
    const bool isInteger =
        number == std::trunc(number) && std::abs(number) <= std::numeric_limits<int>::max();
    return isInteger ? Json(static_cast<int>(number)) : Json(number);
}

Json Parameters(const ParameterStore& store) {
    Json object = Json::object();
    store.ForEach([&object](const ParameterKey& key, const Bytes& value) {
        object[std::to_string(key.index) + "/" + std::to_string(key.subindex)] = value;
    });
    return object;
}

Json Flags(const SimulatedGripper& gripper) {
    Json object = Json::object();
    for (std::size_t flag = 0; flag < kGripperFlagNames.size(); ++flag) {
        object[std::string(kGripperFlagNames[flag])] = gripper.Flag(static_cast<GripperFlag>(flag));
    }
    return object;
}

/// Animation, colour and speed of each LED.
Json Leds(const SimulatedGripper& gripper) {
    Json leds = Json::array();
    const unsigned count = gripper.Model().hasLedsAndHoldfast ? kLedCount : 0;
    for (unsigned index = kFirstLedIndex; index < kFirstLedIndex + count; ++index) {
        Json settings = Json::array();
        for (unsigned subindex = 1; subindex <= kLedSettingCount; ++subindex) {
            if (const Bytes* const value = gripper.Parameters().Find({index, subindex})) {
                settings.push_back(value->empty() ? Json() : Json(value->front()));
            }
        }
        leds.push_back(settings);
    }
    return leds;
}

Json RequestLines(const SimulatedMaster& master) {
    Json lines = Json::array();
    for (const std::string& line : master.RequestLines()) {
        lines.push_back(Text(line));
    }
    return lines;
}

Json UsbState(const UsbFaults* usb) {
    if (usb == nullptr) {
        return {};
    }
    return {
        {"haltedIn", usb->haltedIn},
        {"haltedOut", usb->haltedOut},
        {"haltedTransfers", usb->counts.haltedTransfers},
        {"clearedHalts", usb->counts.clearedHalts},
        {"cutTransfers", usb->counts.cutTransfers},
        {"failedTransfers", usb->counts.failedTransfers},
        {"refusedControls", usb->counts.refusedControls},
        {"ignoredControls", usb->counts.ignoredControls},
        {"lateControls", usb->counts.lateControls},
    };
}

/// A length with its unit, rounded to the micrometre; without a fraction if that is zero.
std::string Millimetres(double length) {
    constexpr double kMicrometres = 1000;
    return Number(std::round(length * kMicrometres) / kMicrometres).dump() + " mm";
}

std::string FlagText(const SimulatedGripper& gripper) {
    std::string text;
    for (std::size_t flag = 0; flag < kGripperFlagNames.size(); ++flag) {
        if (gripper.Flag(static_cast<GripperFlag>(flag))) {
            text += (text.empty() ? "" : ", ") + std::string(kGripperFlagNames[flag]);
        }
    }
    return text.empty() ? "none" : text;
}

std::string TtyText(const Port* port) {
    if (port == nullptr) {
        return "none, the master is unplugged";
    }
    const std::string path = port->NodePath();
    return (path.empty() ? "on USB" : path + (port->IsRaw() ? ", raw" : ", not raw")) +
           (port->IsStalled() ? ", stalled" : "");
}

}  // namespace

std::vector<std::string> StateLines(std::size_t number, const SimulatedMaster& master,
                                    const Port* port) {
    const SimulatedGripper& gripper = master.Gripper();
    const auto part = gripper.Part();
    const auto& requests = master.RequestLines();
    return {
        "master    " + std::to_string(number) + ", ID " + Escape(master.Settings().id),
        "tty       " + TtyText(port),
        "mode      " + std::to_string(master.Mode()) + ", process data " +
            std::to_string(master.Settings().streamRate) + " times a second",
        "gripper   " + std::string(gripper.Model().name) + " at " +
            Millimetres(gripper.Position()) + ", state " +
            std::to_string(static_cast<unsigned>(gripper.State())) + ": " +
            std::string(StateName(gripper.State())),
        "part      " + (part ? Millimetres(*part) : "none"),
        "flags     " + FlagText(gripper),
        "requests  " + std::to_string(master.RequestCount()) +
            (requests.empty() ? "" : ", the last: " + Escape(requests.back())),
        "more      show " + std::to_string(number) + " --json",
    };
}

std::string StateReport(std::size_t number, const SimulatedMaster& master, const Port* port,
                        const UsbFaults* usb) {
    const SimulatedGripper& gripper = master.Gripper();
    const auto part = gripper.Part();
    const Json report{
        {"master", number},
        {"model", gripper.Model().name},
        {"id", Text(master.Settings().id)},
        {"plugged", port != nullptr},
        {"tty", port == nullptr ? "" : port->NodePath()},
        {"raw", port != nullptr && port->IsRaw()},
        {"stalled", port != nullptr && port->IsStalled()},
        {"mode", master.Mode()},
        {"rate", master.Settings().streamRate},
        {"position", Number(gripper.Position())},
        {"part", part ? Number(*part) : Json()},
        {"state", static_cast<unsigned>(gripper.State())},
        {"stateName", StateName(gripper.State())},
        {"faults", Flags(gripper)},
        {"pdin", master.ProcessInput()},
        {"pdout", gripper.ProcessOutput()},
        {"leds", {{"preset", gripper.LedPreset()}, {"leds", Leds(gripper)}}},
        {"devinfo", master.DeviceInfo()},
        {"parameters", Parameters(gripper.Parameters())},
        {"requestCount", master.RequestCount()},
        {"requests", RequestLines(master)},
        {"usb", UsbState(usb)},
    };
    return report.dump(-1, ' ', true);
}

}  // namespace simulator
