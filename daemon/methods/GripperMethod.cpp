#include "daemon/methods/GripperMethod.h"

#include "common/LogLine.h"

GripperMethod::GripperMethod(GripperManager* manager, const char* name, const char* signature)
    : gripperManager(manager), className(name) {
    _signature = signature;
    _help = "";
}

LinkInUse GripperMethod::Find(const std::string& device) const {
    if (device == kNoDevice) {
        return nullptr;
    }
    LinkInUse link = gripperManager->GetLink(device);
    if (link == nullptr) {
        LogLine() << className << ": Failed to get PELLIX handle";
    }
    return link;
}
