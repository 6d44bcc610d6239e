#include "daemon/methods/GripperMethod.h"

#include "common/LogLine.h"

GripperMethod::GripperMethod(GripperManager* gripperManager, const char* className,
                             const char* signature)
    : gripperManager(gripperManager), className(className) {
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
