#include "client/Failure.h"

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
            return "status 3: unknown gripper, not supported by its model, daemon briefly busy, or "
                   "error 3 of the gripper's master";
        case kNoAnswer:
            return "status 5: the gripper's master did not answer within 1 s, or reported error 5; "
                   "the command may or may not have been carried out";
        case kNotSent:
            return "status 12: nothing could be sent to the gripper's master, or its error 12; "
                   "check its USB plug and power";
        case kNoProcessData:
            return "status 21: no process data, the gripper may be starting; or error 21 of its "
                   "master";
        default:
            return "status " + std::to_string(status) +
                   ": error code of the gripper's master, see its manual";
    }
}

ExitStatus ExitStatusFor(int status) {
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
