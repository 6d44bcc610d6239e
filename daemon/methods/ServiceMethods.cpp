#include "daemon/methods/ServiceMethods.h"

#include <string>
#include <vector>

#include "Revision.h"
#include "common/Version.h"

namespace {

constexpr const char* kVersionText =
    TAVRIK_VERSION " (" TAVRIK_REVISION ", build date: " __DATE__ " " __TIME__ ")";

}  // namespace

// On purpose: the signature is wrong (the result is a string and there is no parameter), because
// clients know it in this form.
GetVersion::GetVersion() {
    _signature = "i:S";
    _help = "";
}

void GetVersion::execute(const xmlrpc_c::paramList& params, xmlrpc_c::value* result) {
    params.verifyEnd(0);
    *result = xmlrpc_c::value_string(kVersionText);
}

GetGrippers::GetGrippers(GripperManager* gripperManager) : gripperManager(gripperManager) {
    _signature = "A:";
    _help = "";
}

void GetGrippers::execute(const xmlrpc_c::paramList& params, xmlrpc_c::value* result) {
    params.verifyEnd(0);
    std::vector<xmlrpc_c::value> deviceStrings;
    for (const std::string& deviceString : gripperManager->GetGrippers()) {
        deviceStrings.push_back(xmlrpc_c::value_string(deviceString));
    }
    *result = xmlrpc_c::value_array(deviceStrings);
}
