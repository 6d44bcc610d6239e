#include "simulator/StateReport.h"

#include <array>
#include <charconv>
#include <string_view>

namespace simulator {

namespace {

/// Bytes beyond ASCII are written as the character of the same number.
std::string JsonText(std::string_view text) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    std::string json = "\"";
    for (const char character : text) {
        const auto byte = static_cast<unsigned char>(character);
        if (character == '"' || character == '\\') {
            json += '\\';
            json += character;
        } else if (byte < ' ' || byte > '~') {
            json += "\\u00";
            json += kDigits[byte >> 4U];
            json += kDigits[byte & 0xfU];
        } else {
            json += character;
        }
    }
    return json + "\"";
}

std::string JsonNumber(double number) {
    std::array<char, 32> digits{};
    const auto result = std::to_chars(digits.begin(), digits.end(), number);
    return {digits.begin(), result.ptr};
}

std::string JsonBool(bool value) {
    return value ? "true" : "false";
}

/// Collects the members of an object or the elements of a list.
class JsonList {
public:
    void Add(const std::string& json) {
        text += text.empty() ? "" : ",";
        text += json;
    }
    void Add(std::string_view name, const std::string& json) { Add(JsonText(name) + ":" + json); }
    std::string Object() const { return "{" + text + "}"; }
    std::string Array() const { return "[" + text + "]"; }

private:
    std::string text;
};

std::string JsonBytes(const Bytes& bytes) {
    JsonList list;
    for (const unsigned byte : bytes) {
        list.Add(std::to_string(byte));
    }
    return list.Array();
}

std::string Parameters(const ParameterStore& store) {
    JsonList list;
    store.ForEach([&list](const ParameterKey& key, const Bytes& value) {
        list.Add(std::to_string(key.index) + "/" + std::to_string(key.subindex), JsonBytes(value));
    });
    return list.Object();
}

std::string Flags(const SimulatedGripper& gripper) {
    JsonList list;
    for (std::size_t flag = 0; flag < kGripperFlagCount; ++flag) {
        list.Add(kGripperFlagNames[flag], JsonBool(gripper.Flag(static_cast<GripperFlag>(flag))));
    }
    return list.Object();
}

/// The preset of PDOUT, and animation, colour and speed of each LED.
std::string Leds(const SimulatedGripper& gripper) {
    JsonList leds;
    const unsigned count = gripper.Model().lightsAndHolding ? kLedCount : 0;
    for (unsigned index = kFirstLedIndex; index < kFirstLedIndex + count; ++index) {
        JsonList settings;
        for (unsigned subindex = 1; subindex <= kLedSettingCount; ++subindex) {
            if (const Bytes* const value = gripper.Parameters().Find({index, subindex})) {
                settings.Add(value->empty() ? "null" : std::to_string(value->front()));
            }
        }
        leds.Add(settings.Array());
    }
    JsonList object;
    object.Add("preset", std::to_string(gripper.LedPreset()));
    object.Add("leds", leds.Array());
    return object.Object();
}

std::string RequestLines(const SimulatedMaster& master) {
    JsonList list;
    for (const std::string& line : master.RequestLines()) {
        list.Add(JsonText(line));
    }
    return list.Array();
}

}  // namespace

std::string StateReport(std::size_t number, const SimulatedMaster& master, const PtyPort* port) {
    const SimulatedGripper& gripper = master.Gripper();
    const auto part = gripper.Part();
    JsonList report;
    report.Add("master", std::to_string(number));
    report.Add("model", JsonText(gripper.Model().name));
    report.Add("id", JsonText(master.Settings().id));
    report.Add("plugged", JsonBool(port != nullptr));
    report.Add("tty", JsonText(port == nullptr ? "" : port->NodePath()));
    report.Add("raw", JsonBool(port != nullptr && port->IsRaw()));
    report.Add("stalled", JsonBool(port != nullptr && port->IsStalled()));
    report.Add("mode", std::to_string(master.Mode()));
    report.Add("rate", std::to_string(master.Settings().streamRate));
    report.Add("position", JsonNumber(gripper.Position()));
    report.Add("part", part ? JsonNumber(*part) : "null");
    report.Add("state", std::to_string(static_cast<unsigned>(gripper.State())));
    report.Add("stateName", JsonText(StateName(gripper.State())));
    report.Add("faults", Flags(gripper));
    report.Add("pdin", JsonBytes(master.ProcessInput()));
    report.Add("pdout", JsonBytes(gripper.ProcessOutput()));
    report.Add("leds", Leds(gripper));
    report.Add("devinfo", JsonText(master.DeviceInfo()));
    report.Add("parameters", Parameters(gripper.Parameters()));
    report.Add("requestCount", std::to_string(master.RequestCount()));
    report.Add("requests", RequestLines(master));
    return report.Object();
}

}  // namespace simulator
