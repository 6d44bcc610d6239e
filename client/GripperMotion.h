#pragma once

#include <chrono>
#include <stop_token>

#include "client/Gripper.h"
#include "client/MotionJudge.h"
#include "client/MotionResult.h"
#include "client/ProcessData.h"

namespace tavrik {

/// One motion of a gripper, from its request to its end. One thread at a time.
class GripperMotion {
public:
    /// @param set parameter set of Grip and Release
    /// @param gripper must outlive the motion
    GripperMotion(const Gripper& gripper, MotionKind kind, int set = 0)
        : gripper(gripper), kind(kind), set(set) {}

    /// Requests the motion. Takes milliseconds, or seconds if the master does not answer.
    /// @return status code of the daemon: 0 if the motion has been requested
    int Start();

    /// Waits for the end of the started motion; returns about 20 ms after the gripper reports it.
    /// If it reports none, returns when it has been at rest for half a second; while its state is
    /// that of a motion, at `limit`, unless its override is 0.
    /// @param stop ends the wait with Interrupted, and a running call if the gripper's daemon has
    /// the same token
    /// @throws Failure (NoAnswer) if nothing changes because the master stopped answering;
    /// (NoProcessData) if process data may be missing, or were lost during the wait: the motion may
    /// have been aborted; and as Gripper::ReadProcessData()
    MotionResult AwaitEnd(std::chrono::milliseconds limit, const std::stop_token& stop = {});

    /// Watches the part that has been gripped.
    /// @param gripped what AwaitEnd() returned
    /// @return `gripped` after `time`; PartLost as soon as the gripper no longer reports the part;
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
