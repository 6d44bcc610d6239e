#include "tools/StatusText.h"

namespace tavrikctl {

namespace {
constexpr int kDone = 0;
constexpr int kNotPossible = 3;
constexpr int kNoAnswer = 5;
constexpr int kNotSent = 12;
constexpr int kNoProcessData = 21;
}  // namespace

std::string StatusText(int status) {
    switch (status) {
        case kDone:
            return "done";
        case kNotPossible:
            return "status 3: nothing was sent; no such gripper, a model that cannot do it, or a "
                   "daemon that was busy for a moment";
        case kNoAnswer:
            return "status 5: the gripper's master has not answered within 1 s; whether it did "
                   "what was asked is not known";
        case kNotSent:
            return "status 12: nothing could be sent; look at the plug and the power of the "
                   "gripper's master";
        case kNoProcessData:
            return "status 21: nothing was sent; there are no process data, the gripper may be "
                   "starting";
        default:
            return "status " + std::to_string(status) +
                   ": error code of the gripper's master, see its manual";
    }
}

ExitStatus ExitStatusOf(int status) {
    switch (status) {
        case kDone:
        case kNotPossible:
        case kNoAnswer:
        case kNotSent:
        case kNoProcessData:
            return static_cast<ExitStatus>(status);
        default:
            return ExitStatus::Refused;
    }
}

}  // namespace tavrikctl
