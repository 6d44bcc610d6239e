#include "tools/MethodTable.h"

#include <algorithm>
#include <array>

namespace tavrikctl {

namespace {

constexpr std::array kMethods{
    Method{"Grip", "gi", Answer::Status},
    Method{"Release", "gi", Answer::Status},
    Method{"Disable", "g", Answer::Status},
    Method{"Home", "g", Answer::Status},
    Method{"Reference", "g", Answer::Status},
    Method{"Holdfast", "gb", Answer::Status},
    Method{"UpdatePDIN", "g", Answer::Number},
    Method{"GetPDINExcerpt", "g", Answer::Number},
    Method{"GetState", "g", Answer::Number},
    Method{"GetTempWarn", "g", Answer::Flag},
    Method{"GetTempFault", "g", Answer::Flag},
    Method{"GetFault", "g", Answer::Flag},
    Method{"GetMaintenance", "g", Answer::Flag},
    Method{"GetPos", "g", Answer::Real},
    Method{"GetGrippers", "", Answer::List},
    Method{"GetGripperInterface", "g", Answer::Number},
    Method{"GetParameterChecksum", "g", Answer::Number},
    Method{"StoreRemanent", "g", Answer::Status},
    Method{"GetReleaseLimit", "gi", Answer::Real},
    Method{"GetNoPartLimit", "gi", Answer::Real},
    Method{"GetForce", "gi", Answer::Number},
    Method{"GetOverrideRelease", "g", Answer::Number},
    Method{"GetOverrideGrip", "g", Answer::Number},
    Method{"GetHomingDirection", "g", Answer::Flag},
    Method{"GetReferenceDirection", "g", Answer::Flag},
    Method{"SetReleaseLimit", "gid", Answer::Status},
    Method{"SetNoPartLimit", "gid", Answer::Status},
    Method{"SetForce", "gii", Answer::Status},
    Method{"SetOverrideRelease", "gi", Answer::Status},
    Method{"SetOverrideGrip", "gi", Answer::Status},
    Method{"SetHomingDirection", "gb", Answer::Status},
    Method{"SetReferenceDirection", "gb", Answer::Status},
    Method{"GetLEDAnimation", "gi", Answer::Number},
    Method{"GetLEDColor", "gi", Answer::Number},
    Method{"GetLEDSpeed", "gi", Answer::Number},
    Method{"SetLEDPreset", "gi", Answer::Status},
    Method{"SetLEDAnimation", "gii", Answer::Status},
    Method{"SetLEDColor", "gii", Answer::Status},
    Method{"SetLEDSpeed", "gii", Answer::Status},
    Method{"GetVersion", "", Answer::Text},
    Method{"system.listMethods", "", Answer::List},
    Method{"system.methodExist", "s", Answer::Flag},
    Method{"system.methodHelp", "s", Answer::Text},
    Method{"system.methodSignature", "s", Answer::Any},
    Method{"system.multicall", "a", Answer::Any},
    Method{"system.shutdown", "s", Answer::Number},
    Method{"system.capabilities", "", Answer::Any},
    Method{"system.getCapabilities", "", Answer::Any},
};

}  // namespace

std::span<const Method> Methods() {
    return kMethods;
}

const Method* FindMethod(std::string_view name) {
    const auto* const place =
        std::find_if(kMethods.begin(), kMethods.end(),
                     [name](const auto& method) { return method.name == name; });
    return place == kMethods.end() ? nullptr : &*place;
}

}  // namespace tavrikctl
