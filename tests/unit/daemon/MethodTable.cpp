#include "tests/unit/daemon/MethodTable.h"

#include <algorithm>

#include "daemon/methods/LEDMethods.h"
#include "daemon/methods/MotionMethods.h"
#include "daemon/methods/ParameterMethods.h"
#include "daemon/methods/StateMethods.h"
#include "tests/unit/daemon/GripperCell.h"
#include "tests/unit/daemon/Values.h"

namespace {

template <typename Method>
std::unique_ptr<xmlrpc_c::method> Create(GripperManager* manager) {
    return std::make_unique<Method>(manager);
}

constexpr auto kNone = Check::kNone;
constexpr auto kHva = Check::kHva;
constexpr auto kMzd = Check::kMzd;

// Getters return the values that GripperCell sets. PDOUT requests keep the bits that do not belong
// to the operation.
const std::vector<MethodFacts> kMethods{
    // clang-format off
    {"Grip", "i:Si", "si", kNone, "int 3", "int 0", "PDOUT=[b,2]", Create<Grip>},
    {"Release", "i:Si", "si", kNone, "int 3", "int 0", "PDOUT=[a,2]", Create<Release>},
    {"Disable", "i:S", "s", kNone, "int 3", "int 0", "PDOUT=[8,5]", Create<Disable>},
    {"Reference", "i:S", "s", kHva, "int 3", "int 0", "PDOUT=[e,5]", Create<Reference>},
    {"Holdfast", "i:S", "sb", kMzd, "int 3", "int 0", "PDOUT=[1a,5]", Create<Holdfast>},
    {"UpdatePDIN", "i:S", "s", kNone, "int 3", "int 3", "", Create<UpdatePDIN>},
    {"GetPDINExcerpt", "i:S", "s", kNone, "int 0", "int 10732553", "", Create<GetPDINExcerpt>},
    {"GetState", "i:S", "s", kNone, "int -1", "int 3", "", Create<GetState>},
    {"GetTempWarn", "b:S", "s", kNone, "boolean false", "boolean false", "", Create<GetTempWarn>},
    {"GetTempFault", "b:S", "s", kNone, "boolean false", "boolean true", "", Create<GetTempFault>},
    {"GetFault", "b:S", "s", kNone, "boolean false", "boolean false", "", Create<GetFault>},
    {"GetMaintenance", "b:S", "s", kNone, "boolean false", "boolean true", "",
     Create<GetMaintenance>},
    {"GetPos", "d:S", "s", kNone, "double nan", "double 25", "", Create<GetPos>},
    {"GetGripperInterface", "i:S", "s", kNone, "int -1", "int 0", "", Create<GetGripperInterface>},
    {"GetParameterChecksum", "i:S", "s", kNone, "i8 0", "i8 -231451016", "PARAM[3][4]?",
     Create<GetParameterChecksum>},
    {"StoreRemanent", "i:S", "s", kNone, "int 3", "int 0", "PARAM[2][0]=[e0]",
     Create<StoreRemanent>},
    {"GetReleaseLimit", "d:Si", "si", kNone, "double nan", "double 25", "PARAM[98][2]?",
     Create<GetReleaseLimit>},
    {"GetNoPartLimit", "d:Si", "si", kNone, "double nan", "double -2", "PARAM[98][1]?",
     Create<GetNoPartLimit>},
    {"GetForce", "i:Si", "si", kHva, "int 0", "int 100", "PARAM[98][3]?", Create<GetForce>},
    {"GetOverrideRelease", "i:S", "s", kNone, "int 0", "int 200", "PARAM[64][2]?",
     Create<GetOverrideRelease>},
    {"GetOverrideGrip", "i:S", "s", kNone, "int 0", "int 250", "PARAM[64][1]?",
     Create<GetOverrideGrip>},
    {"GetReferenceDirection", "b:S", "s", kHva, "boolean false", "boolean true", "PARAM[64][3]?",
     Create<GetReferenceDirection>},
    {"SetReleaseLimit", "i:Sid", "sid", kNone, "int 3", "int 0", "PARAM[98][2]=[4,e2]",
     Create<SetReleaseLimit>},
    {"SetNoPartLimit", "i:Sid", "sid", kNone, "int 3", "int 0", "PARAM[98][1]=[4,e2]",
     Create<SetNoPartLimit>},
    {"SetForce", "i:Sii", "sii", kHva, "int 3", "int 0", "PARAM[98][3]=[7]", Create<SetForce>},
    {"SetOverrideRelease", "i:Si", "si", kHva, "int 3", "int 0", "PARAM[64][2]=[2]",
     Create<SetOverrideRelease>},
    {"SetOverrideGrip", "i:Si", "si", kHva, "int 3", "int 0", "PARAM[64][1]=[2]",
     Create<SetOverrideGrip>},
    {"SetReferenceDirection", "i:Sb", "sb", kHva, "int 3", "int 0", "PARAM[64][3]=[ff]",
     Create<SetReferenceDirection>},
    {"GetLEDAnimation", "i:Si", "si", kMzd, "int 0", "int 3", "PARAM[130][1]?",
     Create<GetLEDAnimation>},
    {"GetLEDColor", "i:Si", "si", kMzd, "int 0", "int 4", "PARAM[130][2]?", Create<GetLEDColor>},
    {"GetLEDSpeed", "i:Si", "si", kMzd, "int 0", "int 5", "PARAM[130][3]?", Create<GetLEDSpeed>},
    {"SetLEDPreset", "i:Si", "si", kMzd, "int 3", "int 0", "PDOUT=[4a,5]", Create<SetLEDPreset>},
    {"SetLEDAnimation", "i:Sii", "sii", kMzd, "int 3", "int 0", "PARAM[130][1]=[7]",
     Create<SetLEDAnimation>},
    {"SetLEDColor", "i:Sii", "sii", kMzd, "int 3", "int 0", "PARAM[130][2]=[7]",
     Create<SetLEDColor>},
    {"SetLEDSpeed", "i:Sii", "sii", kMzd, "int 3", "int 0", "PARAM[130][3]=[7]",
     Create<SetLEDSpeed>},
    // clang-format on
};

}  // namespace

const std::vector<MethodFacts>& AllMethods() {
    return kMethods;
}

const MethodFacts& FactsOf(const std::string& className) {
    return *std::find_if(kMethods.begin(), kMethods.end(),
                         [&](const MethodFacts& method) { return method.className == className; });
}

std::vector<xmlrpc_c::value> Arguments(const MethodFacts& method, const std::string& device) {
    std::vector<xmlrpc_c::value> arguments;
    int number = 2;
    for (const char kind : method.parameters) {
        switch (kind) {
            case 's':
                arguments.push_back(values::ToValue(device));
                break;
            case 'i':
                arguments.push_back(values::ToValue(number));
                number += 5;
                break;
            case 'd':
                arguments.push_back(values::ToValue(12.5));
                break;
            default:
                arguments.push_back(values::ToValue(true));
                break;
        }
    }
    return arguments;
}

xmlrpc_c::paramList ToParameters(const std::vector<xmlrpc_c::value>& arguments) {
    xmlrpc_c::paramList parameters;
    for (const xmlrpc_c::value& argument : arguments) {
        parameters.add(argument);
    }
    return parameters;
}

std::string SampleAnswer(const MethodFacts& method, const std::string& device) {
    return values::Execute(*method.create(&GripperCell::Manager()),
                           ToParameters(Arguments(method, device)));
}
