#include "daemon/methods/StateMethods.h"

#include "common/LogLine.h"

namespace {

constexpr std::size_t kPdinLength = 4;  // bytes

// On purpose: leaves out byte 2 (the status), because clients expect position, state
// and flags only.
int PdinExcerpt(pellix::Pellix& link) {
    const auto pdin = link.GetDevice().GetPDIN();
    if (pdin.size() != kPdinLength) {
        LogLine() << "PDIN length mismatch: " << pdin.size();
        return 0;
    }
    return pdin[0] | pdin[1] << 8 | pdin[3] << 16;
}

}  // namespace

void UpdatePDIN::execute(const xmlrpc_c::paramList& params, xmlrpc_c::value* result) {
    params.getString(0);
    params.verifyEnd(1);
    *result = xmlrpc_c::value_int(kStatusRefused);
}

GetPDINExcerpt::GetPDINExcerpt(GripperManager* manager)
    : GripperCall(manager, "GetPDINExcerpt", "i:S", PdinExcerpt, 0) {}

void GetGripperInterface::execute(const xmlrpc_c::paramList& params, xmlrpc_c::value* result) {
    const std::string device = params.getString(0);
    params.verifyEnd(1);
    if (device == kNoDevice) {
        *result = xmlrpc_c::value_int(-2);
        return;
    }
    *result = xmlrpc_c::value_int(Find(device) == nullptr ? -1 : 0);
}
