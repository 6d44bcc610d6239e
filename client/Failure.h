#pragma once

#include <stdexcept>
#include <string>

namespace tavrik {

/// Exit statuses of tavrikctl. 3, 5, 12 and 21 are the daemon's status codes.
enum class ExitStatus {
    Done = 0,
    Refused = 1,         ///< any other status: an error code of the gripper's master; or a setting
                         ///< has another value than was set
    Usage = 2,           ///< invalid command line
    NotPossible = 3,     ///< no such gripper, or its model cannot do it
    NoDaemon = 4,        ///< the daemon cannot be reached or did not answer in time
    NoAnswer = 5,        ///< the gripper's master did not answer
    BadAnswer = 6,       ///< the daemon answered with a fault, or not as it should
    NoGripper = 7,       ///< no gripper, or more than one, matches the name
    NotAtRest = 8,       ///< --wait: the gripper is still moving
    Failed = 9,          ///< tavrikctl itself has failed
    Faulty = 10,         ///< --wait: the gripper is at rest with a fault
    NotSent = 12,        ///< nothing could be sent to the gripper's master
    NoProcessData = 21,  ///< the data link to the gripper is not in operate
};

/// Ends the program: the text, one line, goes to standard error.
class Failure : public std::runtime_error {
public:
    Failure(ExitStatus status, const std::string& text)
        : std::runtime_error(text), exitStatus(status) {}
    ExitStatus Status() const { return exitStatus; }

private:
    ExitStatus exitStatus;
};

}  // namespace tavrik
