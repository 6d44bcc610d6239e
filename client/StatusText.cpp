#include "client/StatusText.h"

namespace tavrik {

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
            return "status 3: no such gripper, a model that cannot do it, a daemon that was busy "
                   "for a moment, or error 3 of the gripper's master";
        case kNoAnswer:
            return "status 5: the gripper's master has not answered within 1 s, or with its "
                   "error 5; whether it did what was asked is not known";
        case kNotSent:
            return "status 12: nothing could be sent, or error 12 of the gripper's master; look at "
                   "its plug and power";
        case kNoProcessData:
            return "status 21: there are no process data, the gripper may be starting; or error 21 "
                   "of its master";
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

}  // namespace tavrik
