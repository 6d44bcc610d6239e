#include "client/MethodTable.h"

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "client/Printable.h"
#include "client/Values.h"

namespace tavrik {

namespace {

using enum Feature;

constexpr std::array kMethods{
    Method{"Grip", "gi", true},
    Method{"Release", "gi", true},
    Method{"Disable", "g", true},
    Method{"Home", "g", true, ForceAndReference},
    Method{"Reference", "g", true, ForceAndReference},
    Method{"Holdfast", "gb", true, LedsAndHoldfast},
    Method{"UpdatePDIN", "g"},
    Method{"GetPDINExcerpt", "g"},
    Method{"GetState", "g"},
    Method{"GetTempWarn", "g"},
    Method{"GetTempFault", "g"},
    Method{"GetFault", "g"},
    Method{"GetMaintenance", "g"},
    Method{"GetPos", "g"},
    Method{"GetGrippers", ""},
    Method{"GetGripperInterface", "g"},
    Method{"GetParameterChecksum", "g"},
    Method{"StoreRemanent", "g", true},
    Method{"GetReleaseLimit", "gi"},
    Method{"GetNoPartLimit", "gi"},
    Method{"GetForce", "gi", false, ForceAndReference},
    Method{"GetOverrideRelease", "g"},
    Method{"GetOverrideGrip", "g"},
    Method{"GetHomingDirection", "g", false, ForceAndReference},
    Method{"GetReferenceDirection", "g", false, ForceAndReference},
    Method{"SetReleaseLimit", "gid", true},
    Method{"SetNoPartLimit", "gid", true},
    Method{"SetForce", "gii", true, ForceAndReference},
    Method{"SetOverrideRelease", "gi", true, ForceAndReference},
    Method{"SetOverrideGrip", "gi", true, ForceAndReference},
    Method{"SetHomingDirection", "gb", true, ForceAndReference},
    Method{"SetReferenceDirection", "gb", true, ForceAndReference},
    Method{"GetLEDAnimation", "gi", false, LedsAndHoldfast},
    Method{"GetLEDColor", "gi", false, LedsAndHoldfast},
    Method{"GetLEDSpeed", "gi", false, LedsAndHoldfast},
    Method{"SetLEDPreset", "gi", true, LedsAndHoldfast},
    Method{"SetLEDAnimation", "gii", true, LedsAndHoldfast},
    Method{"SetLEDColor", "gii", true, LedsAndHoldfast},
    Method{"SetLEDSpeed", "gii", true, LedsAndHoldfast},
    Method{"GetVersion", ""},
    Method{"system.listMethods", ""},
    Method{"system.methodExist", "s"},
    Method{"system.methodHelp", "s"},
    Method{"system.methodSignature", "s"},
    Method{"system.multicall", "a"},
    Method{"system.shutdown", "s"},
    Method{"system.capabilities", ""},
    Method{"system.getCapabilities", ""},
};

const char* Word(char letter) {
    switch (letter) {
        case 'g':
            return "GRIPPER";
        case 'i':
            return "INTEGER";
        case 'd':
            return "NUMBER";
        case 'b':
            return "on|off";
        case 'a':
            return "JSON-ARRAY";
        default:
            return "TEXT";
    }
}

xmlrpc_c::value ParseText(const std::string& text) {
    try {
        return xmlrpc_c::value_string(text);
    } catch (const std::exception&) {
        throw InvalidText("UTF-8", text);
    }
}

xmlrpc_c::value ParseJson(const std::string& text) {
    const auto json = nlohmann::ordered_json::parse(text, nullptr, false);
    if (!json.is_array()) {
        throw InvalidText("a JSON array", text);
    }
    try {
        return ToValue(json);
    } catch (const std::out_of_range& excess) {
        throw Failure(ExitStatus::Usage,
                      "invalid argument '" + Printable(text) + "': " + excess.what());
    }
}

}  // namespace

std::span<const Method> Methods() {
    return kMethods;
}

std::string Usage(const Method& method) {
    std::string text(method.name);
    for (const char letter : method.parameters) {
        text += std::string(" ") + Word(letter);
    }
    return text;
}

const Method* FindMethod(std::string_view name) {
    const auto* const place = std::ranges::find(kMethods, name, &Method::name);
    return place == kMethods.end() ? nullptr : place;
}

xmlrpc_c::value ParseArgument(char letter, const std::string& text) {
    switch (letter) {
        case 'i':
            return xmlrpc_c::value_int(ParseInteger(text));
        case 'd':
            return xmlrpc_c::value_double(ParseReal(text));
        case 'b':
            return xmlrpc_c::value_boolean(ParseBoolean(text));
        case 'a':
            return ParseJson(text);
        default:
            return ParseText(text);
    }
}

}  // namespace tavrik
