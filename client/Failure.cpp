#include "client/Failure.h"

namespace tavrik {

std::string StatusText(int status) {
    switch (static_cast<ExitStatus>(status)) {
        case ExitStatus::Done:
            return "done";
        case ExitStatus::NotPossible:
            return "status 3: unknown gripper, not supported by its model, daemon briefly busy, or "
                   "error 3 of the gripper's master";
        case ExitStatus::NoAnswer:
            return "status 5: the gripper's master did not answer within 1 s, or reported error 5; "
                   "the command may or may not have been carried out";
        case ExitStatus::NotSent:
            return "status 12: nothing could be sent to the gripper's master, or its error 12; "
                   "check its USB plug and power";
        case ExitStatus::NoProcessData:
            return "status 21: no process data, the gripper may be starting; or error 21 of its "
                   "master";
        default:
            return "status " + std::to_string(status) +
                   ": error code of the gripper's master, see its manual";
    }
}

ExitStatus ExitStatusFor(int status) {
    switch (static_cast<ExitStatus>(status)) {
        case ExitStatus::Done:
        case ExitStatus::NotPossible:
        case ExitStatus::NoAnswer:
        case ExitStatus::NotSent:
        case ExitStatus::NoProcessData:
            return static_cast<ExitStatus>(status);
        default:
            return ExitStatus::Refused;
    }
}

}  // namespace tavrik
