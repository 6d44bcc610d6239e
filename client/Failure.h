#pragma once

#include <stdexcept>
#include <string>

namespace tavrik {

/// Exit statuses of tavrikctl; tavrikctl/CommandLine.cpp has their help. 3, 5, 12 and 21 are the
/// daemon's status codes.
enum class ExitStatus {
    Done = 0,
    Refused = 1,         ///< an error code of the gripper's master, a setting does not have the
                         ///< value that was set, settings differ, or the user declined
    Usage = 2,           ///< invalid command line or file
    NotPossible = 3,     ///< unknown gripper, not supported by its model, or daemon busy
    NoDaemon = 4,        ///< the daemon cannot be reached or did not answer in time
    NoAnswer = 5,        ///< the gripper's master did not answer
    BadAnswer = 6,       ///< the daemon replied with a fault, or is not a TavrikDaemon
    NoGripper = 7,       ///< no gripper, or more than one, matches the name
    NotAtRest = 8,       ///< --wait: the gripper is still moving; settings: it is in use
    Failed = 9,          ///< tavrikctl itself failed
    Faulty = 10,         ///< --wait: the gripper is at rest with a fault
    DidNotMove = 11,     ///< --wait: the gripper did not move, or not to the end of the motion
    NotSent = 12,        ///< nothing could be sent to the gripper's master
    NotHeld = 13,        ///< --hold-for: no part was held so long
    NotAsExpected = 14,  ///< the grippers are not those of the cell, or something is wrong
    NoProcessData = 21,  ///< the data link to the gripper is not in mode operate
    Interrupted = 130,   ///< by a signal; the program ends by the same one
};

/// An error that ends the program: the text, one line, goes to standard error.
class Failure : public std::runtime_error {
public:
    Failure(ExitStatus status, const std::string& text)
        : std::runtime_error(text), status(status) {}
    ExitStatus Status() const { return status; }

private:
    ExitStatus status;
};

/// A status code of the daemon in words.
std::string StatusText(int status);

/// The exit status for a status code of the daemon.
ExitStatus ExitStatusFor(int status);

}  // namespace tavrik
