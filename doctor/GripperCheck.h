#pragma once

#include "client/Failure.h"
#include "client/Gripper.h"
#include "doctor/Finding.h"

namespace tavrik {

/// Whether a gripper that the daemon lists answers.
class GripperCheck {
public:
    explicit GripperCheck(Gripper listed) : gripper(std::move(listed)) {}
    Findings Run();

    /// After Run(): Done if the gripper answers.
    ExitStatus Status() const { return status; }

private:
    Finding Look();
    Finding Describe(const ProcessData& data) const;

    Gripper gripper;
    ExitStatus status = ExitStatus::NoAnswer;
};

}  // namespace tavrik
