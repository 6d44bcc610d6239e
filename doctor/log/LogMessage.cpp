#include "doctor/log/LogMessage.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <vector>

#include "client/MethodTable.h"
#include "client/SettingTable.h"

namespace tavrik {

namespace {

struct Beginning {
    std::string_view text;
    LogKind kind;
    bool isOfDaemon = false;  // about the daemon or its host
};

constexpr bool kOfDaemon = true;

// The first that fits counts.
constexpr std::array kBeginnings{
    Beginning{"Starting TavrikDaemon", LogKind::Event, kOfDaemon},
    Beginning{"Daemon version: ", LogKind::Event, kOfDaemon},
    Beginning{"TavrikDaemon started", LogKind::Event, kOfDaemon},
    Beginning{"TavrikDaemon stopped", LogKind::Event, kOfDaemon},
    Beginning{"TavrikDaemon::", LogKind::Event, kOfDaemon},
    Beginning{"Device added", LogKind::Event},
    Beginning{"PELLIX removed: ", LogKind::Event},
    Beginning{"SerialConnection: Reopening", LogKind::Event},
    Beginning{"Init: Device mode is ", LogKind::Event},
    Beginning{"ESTABCOMM", LogKind::Event},
    Beginning{"STARTUP", LogKind::Event},
    Beginning{"PREOPERATE", LogKind::Event},
    Beginning{"OPERATE", LogKind::Event},

    Beginning{"Active command ", LogKind::Routine},
    Beginning{"Active commands: ", LogKind::Routine},
    Beginning{"ACK:", LogKind::Routine},
    Beginning{"FIN:", LogKind::Routine},
    Beginning{"ERR:", LogKind::Routine},
    Beginning{"Parsing line: ", LogKind::Routine},
    Beginning{"New command ", LogKind::Routine},
    Beginning{"Pending command ", LogKind::Routine},
    Beginning{"Clearing previous input stream error: ", LogKind::Routine},
    Beginning{"Creating parameter ", LogKind::Routine},
    Beginning{"Updating ", LogKind::Routine},
    Beginning{"Setting device mode to ", LogKind::Routine},
    Beginning{"Switching to OPERATE", LogKind::Routine},
    Beginning{"DEVICE_INFO: ", LogKind::Routine},
    Beginning{"DeviceInfo", LogKind::Routine},
    Beginning{"PDIN active", LogKind::Routine},
    Beginning{"Line length is 0 without eof", LogKind::Routine},
    Beginning{"Failed to update ", LogKind::Routine},
    Beginning{"Retrying (", LogKind::Routine},
    Beginning{"Parser thread ", LogKind::Routine},
    Beginning{"Timeout monitor thread ", LogKind::Routine},
    Beginning{"State thread ", LogKind::Routine},
    Beginning{"SerialConnection: Opening device ", LogKind::Routine},
    Beginning{"SerialConnection: Initialize device succeeded", LogKind::Routine},
    Beginning{"SerialConnection: Closed device ", LogKind::Routine},
    Beginning{"SerialConnection: /", LogKind::Routine},  // already open, not open
    Beginning{"Got Device with action ", LogKind::Routine, kOfDaemon},
    Beginning{"Unknown udev action: ", LogKind::Routine, kOfDaemon},
    Beginning{"   Node: ", LogKind::Routine, kOfDaemon},
    Beginning{"   Subsystem: ", LogKind::Routine, kOfDaemon},
    Beginning{"  VID/PID: ", LogKind::Routine, kOfDaemon},
    Beginning{"  Manufacturer: ", LogKind::Routine, kOfDaemon},
    Beginning{"  Product: ", LogKind::Routine, kOfDaemon},
    Beginning{"  SN: ", LogKind::Routine, kOfDaemon},
    Beginning{"(No parent dev)", LogKind::Routine, kOfDaemon},
    Beginning{"Found PELLIX compatible device", LogKind::Routine, kOfDaemon},
    Beginning{"PELLIX detected", LogKind::Routine, kOfDaemon},
    Beginning{"PELLIX has a link already: ", LogKind::Routine},
    Beginning{"Not a valid device", LogKind::Routine, kOfDaemon},
    Beginning{"Removing ", LogKind::Routine},
    Beginning{"PELLIX ", LogKind::Routine},  // the stop has closed a link
    Beginning{"Port number: ", LogKind::Routine, kOfDaemon},
    Beginning{"Initializing GripperManager", LogKind::Routine, kOfDaemon},
    Beginning{"GripperManager ", LogKind::Routine, kOfDaemon},
    Beginning{"Daemon revision: ", LogKind::Routine, kOfDaemon},
    Beginning{"Daemon build date: ", LogKind::Routine, kOfDaemon},
    Beginning{"Library revision: ", LogKind::Routine, kOfDaemon},
    Beginning{"Library build date: ", LogKind::Routine, kOfDaemon},

    Beginning{"FALLBACK: ", LogKind::Problem},
    Beginning{"POWERFAULT", LogKind::Problem},
    Beginning{"Failed ", LogKind::Problem},
    Beginning{"Timeout ", LogKind::Problem},
    Beginning{"Exception ", LogKind::Problem},
    Beginning{"Input timeout", LogKind::Problem},
    Beginning{"Parser: No input data", LogKind::Problem},
    Beginning{"SerialConnection: ", LogKind::Problem},
    Beginning{"Can't create udev", LogKind::Problem, kOfDaemon},
    Beginning{"No connection accepted: ", LogKind::Problem, kOfDaemon},
    Beginning{"Connection closed: no thread for it", LogKind::Problem, kOfDaemon},
    Beginning{"Server on port ", LogKind::Problem, kOfDaemon},
    Beginning{"No device from receive_device()", LogKind::Problem, kOfDaemon},
    Beginning{"Device has been removed", LogKind::Problem},
    Beginning{"Device '", LogKind::Problem},
    Beginning{"Device string is empty ", LogKind::Problem},
    Beginning{"Invalid device ID", LogKind::Problem},
    Beginning{"Pellix not ", LogKind::Problem},
    Beginning{"Couldn't ", LogKind::Problem},
    Beginning{"Too many parameters: ", LogKind::Problem},
    Beginning{"Parameter ", LogKind::Problem},
    Beginning{"PDIN length mismatch: ", LogKind::Problem},
    Beginning{"Keeping remaining string: ", LogKind::Problem},
    Beginning{"Error after adding input to stream: ", LogKind::Problem},
    Beginning{"Trying to clear stream", LogKind::Problem},
    Beginning{"getline() ", LogKind::Problem},
    Beginning{"terminal: tcgetattr() failed", LogKind::Problem},
    Beginning{"terminate called", LogKind::Problem, kOfDaemon},

    Beginning{"TavrikDaemon", LogKind::Other, kOfDaemon},  // of the dynamic linker
};

const Beginning* BeginningOf(std::string_view message) {
    const auto* const found = std::ranges::find_if(
        kBeginnings, [&](const Beginning& each) { return message.starts_with(each.text); });
    return found == kBeginnings.end() ? nullptr : found;
}

struct Address {
    unsigned index = 0;
    unsigned subindex = 0;
};

std::optional<Address> ReadAddress(std::string_view key) {
    const auto rest = Between("PARAM[", "]", key);
    const std::size_t middle = rest ? rest->find("][") : std::string_view::npos;
    if (middle == std::string_view::npos) {
        return std::nullopt;
    }
    Address address;
    std::from_chars(rest->data(), rest->data() + middle, address.index);
    std::from_chars(rest->data() + middle + 2, rest->data() + rest->size(), address.subindex);
    return address;
}

/// The setting whose parameter has this address; null if there is none.
const Setting* SettingAt(Address address) {
    constexpr unsigned kGripper = 0x40;
    constexpr unsigned kFirstSet = 0x60;
    constexpr unsigned kFirstLed = 0x80;
    using Place = Setting::Place;
    const Place place = address.index >= kFirstLed   ? Place::Led
                        : address.index >= kFirstSet ? Place::Set
                                                     : Place::Gripper;
    if (address.subindex == 0 || (place == Place::Gripper && address.index != kGripper)) {
        return nullptr;
    }
    const auto settings = Settings();
    const auto found = std::ranges::find_if(settings, [&](const Setting& setting) {
        return setting.place == place && setting.subindex == address.subindex;
    });
    return found == settings.end() ? nullptr : &*found;
}

std::string MethodOfParameter(const LoggedRequest& request, Address address) {
    if (address.index == 3 && address.subindex == 4) {
        return "GetParameterChecksum";
    }
    if (address.index == 2 && address.subindex == 0) {
        return "StoreRemanent";
    }
    const Setting* const setting = SettingAt(address);
    if (setting == nullptr) {
        return "";
    }
    // Only a read is answered by a value.
    return request.isRead ? std::string(setting->getter)
                          : (request.isAssigned ? "" : "Get/") + std::string(setting->setter);
}

std::optional<unsigned> FirstByte(std::string_view list) {
    unsigned byte = 0;
    const auto [end, error] = std::from_chars(list.data(), list.data() + list.size(), byte, 16);
    return error == std::errc() ? std::optional(byte) : std::nullopt;
}

/// Each of these methods changes bits of its own in the first byte of PDOUT.
std::string MethodOfProcessOutput(const LoggedRequest& request) {
    constexpr unsigned kGrip = 0x01;
    constexpr unsigned kEnable = 0x02;
    constexpr unsigned kReference = 0x04;
    constexpr unsigned kHoldfast = 0x10;
    constexpr unsigned kLedPreset = 0xE0;
    const auto value = Between("PDOUT=[", "]", request.text);
    const auto now = FirstByte(value.value_or(""));
    if (!request.followsModelCheck) {
        return !now                       ? "Grip, Release or Disable"
               : (*now & kEnable) == 0    ? "Disable"
               : (*now & kReference) != 0 ? ""
               : (*now & kGrip) != 0      ? "Grip"
                                          : "Release";
    }
    const unsigned before = FirstByte(request.processOutput).value_or(now.value_or(0));
    const unsigned changed = now.value_or(before) ^ before;
    const bool mustBeReference = request.model != nullptr && !request.model->hasLedsAndHoldfast;
    if (mustBeReference && !now) {
        return "a motion";  // perhaps of the next call, after one that was refused
    }
    if (mustBeReference || (changed & (kReference | kEnable)) != 0) {
        return "Reference";
    }
    return (changed & kHoldfast) != 0    ? "Holdfast"
           : (changed & kLedPreset) != 0 ? "SetLEDPreset"
                                         : "Reference, Holdfast or SetLEDPreset";
}

}  // namespace

const char* KindText(LogKind kind) {
    switch (kind) {
        case LogKind::Call:
            return "call";
        case LogKind::Problem:
            return "trouble";
        case LogKind::Event:
            return "event";
        case LogKind::Routine:
            return "routine";
        case LogKind::Other:
            break;
    }
    return "other";
}

LogKind KindOf(std::string_view message) {
    if (const Beginning* const beginning = BeginningOf(message)) {
        return beginning->kind;
    }
    if (DetectedModel(message) != nullptr) {
        return LogKind::Routine;
    }
    // "Grip: Failed to get PELLIX handle"
    return message.ends_with(": Failed to get PELLIX handle") ? LogKind::Problem : LogKind::Other;
}

bool IsOfDaemon(std::string_view message) {
    const Beginning* const beginning = BeginningOf(message);
    return beginning != nullptr && beginning->isOfDaemon;
}

const GripperModel* DetectedModel(std::string_view message) {
    const auto models = GripperModels();
    const auto found = std::ranges::find_if(models, [&](const GripperModel& model) {
        return Between(model.logName, " detected", message) == "";
    });
    return found == models.end() ? nullptr : &*found;
}

std::optional<std::string_view> After(std::string_view beginning, std::string_view message) {
    return message.starts_with(beginning) ? std::optional(message.substr(beginning.size()))
                                          : std::nullopt;
}

std::optional<std::string_view> Between(std::string_view beginning, std::string_view end,
                                        std::string_view message) {
    const auto rest = After(beginning, message);
    if (!rest || !rest->ends_with(end)) {
        return std::nullopt;
    }
    return rest->substr(0, rest->size() - end.size());
}

std::string MethodsOf(const LoggedRequest& request) {
    if (request.key == "PDOUT") {
        return MethodOfProcessOutput(request);
    }
    if (request.key == "ID") {
        return "GetGrippers";
    }
    const auto address = ReadAddress(request.key);
    return address ? MethodOfParameter(request, *address) : "";
}

bool NeedsModelCheck(std::string_view key) {
    const auto address = ReadAddress(key);
    const Setting* const setting = address ? SettingAt(*address) : nullptr;
    return setting != nullptr && FindMethod(setting->getter)->needs != Feature::None;
}

}  // namespace tavrik
