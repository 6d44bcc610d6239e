#pragma once

#include <chrono>
#include <stop_token>

#include "client/Gripper.h"
#include "client/MotionJudge.h"
#include "client/MotionResult.h"
#include "client/ProcessData.h"

namespace tavrik {

/// One motion of a gripper, from its request to its end.
class GripperMotion {
public:
    /// @param set parameter set of Grip and Release
    /// @param gripper must outlive the motion
    GripperMotion(const Gripper& gripper, MotionKind kind, int set = 0)
        : gripper(gripper), kind(kind), set(set) {}

    /// Requests the motion. Takes milliseconds, or seconds if the master does not answer.
    /// @return status code of the daemon: 0 if the motion has been requested
    int Start();

    /// Waits for the end of the motion that was started, and reports it about 20 ms after the
    /// gripper has. A motion that is not reported is waited for until the gripper has been at rest
    /// for half a second; in the state of a motion, until the limit unless its override is 0.
    /// @param stop ends the wait, with Interrupted; a running call only if the gripper's daemon has
    /// the same token
    /// @throws Failure (NoAnswer) when nothing changes because the master stopped answering;
    /// (NoProcessData) when process data may be missing, or were lost during the wait: the motion
    /// may have been aborted; and as Gripper::ReadProcessData()
    MotionResult AwaitEnd(std::chrono::milliseconds limit, const std::stop_token& stop = {});

    /// Watches the part that has been gripped.
    /// @param gripped what AwaitEnd() returned
    /// @return after `time` the same; PartLost as soon as the gripper no longer reports the part;
    /// Faulty or Interrupted
    /// @throws Failure as AwaitEnd()
    MotionResult Hold(const MotionResult& gripped, std::chrono::milliseconds time,
                      const std::stop_token& stop = {}) const;

private:
    void ReadBeforeDisable();
    MotionResult Judge(const MotionJudge& judge, MotionEnd end) const;
    MotionResult JudgeAtRest(const MotionJudge& judge, MotionEnd end) const;
    bool MayContinue(const MotionResult& result) const;
    MotionResult JudgeAtLimit(const MotionJudge& judge) const;
    MotionObstacle FindObstacle(const MotionJudge& judge, MotionEnd end) const;
    MotionEnd EndOfHold(const ProcessData& data) const;
    bool IsOverrideZero() const;
    bool IsSetMissing() const;
    void RequireAnswer(const ProcessData& data) const;

    const Gripper& gripper;
    const MotionKind kind;
    const int set;
    ProcessData before{0};
    std::chrono::steady_clock::time_point start{};
};

}  // namespace tavrik
