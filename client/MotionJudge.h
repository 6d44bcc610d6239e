#pragma once

#include <chrono>
#include <optional>

#include "client/ProcessData.h"

namespace tavrik {

/// Whether the two positions differ by more than the noise of a resting gripper.
bool IsMotion(double from, double to);

/// Whether a gripper reports this state while its fingers move.
bool IsMoving(GripperState state);

/// Tells whether a gripper has come to rest: neither position nor state has changed for half a
/// second, because a motion may begin that long after its call. A sampling gap of more than 0.2 s
/// restarts the wait: what is read after it may be old.
class RestDetector {
public:
    using TimePoint = std::chrono::steady_clock::time_point;

    /// Takes the values read at `now`.
    bool IsAtRest(double position, int state, TimePoint now);

private:
    struct Values {
        double position;
        int state;
        TimePoint since;
    };
    std::optional<Values> resting;
    TimePoint lastSample{};
};

/// Requests to the drive.
enum class MotionKind { Grip, Release, Reference, Disable };

enum class MotionEnd {
    Gripped,      ///< holds a part
    NoPart,       ///< has reached the no-part limit
    Released,     ///< has reached the release limit
    Referenced,   ///< the reference run is done
    SwitchedOff,  ///< the drive is off
    DidNotMove,   ///< no motion was seen, nor has the state changed to one of the above
    Stopped,      ///< at rest after a motion, but not in one of the above states
    Faulty,       ///< at rest with a fault
    Moving,       ///< still moving at the time limit
    Interrupted,  ///< the wait was interrupted
    PartLost,     ///< the part that was gripped is no longer held
    NotReported,  ///< the process data have not changed, and nothing explains why
};

/// Judges the end of one motion by the process data that follow its request. Does no input or
/// output.
class MotionJudge {
public:
    using TimePoint = RestDetector::TimePoint;

    enum class Progress {
        Going,
        Reported,  ///< the gripper itself has reported the end
        AtRest,    ///< nothing changes, which may also be because the master is silent
    };

    /// @param before the process data before the request
    /// @param start when the request had returned
    MotionJudge(MotionKind kind, const ProcessData& before, TimePoint start)
        : kind(kind), before(before), last(before), start(start) {}

    /// Takes the process data read at `now`; at least every 0.2 s.
    Progress Add(const ProcessData& data, TimePoint now);

    /// Restarts the detection of rest, for a motion that may continue although nothing changes.
    void RestartRest() { rest = {}; }

    /// How the motion has ended, once Add() has returned Reported or AtRest.
    MotionEnd End() const;

    /// The same, or Moving, when the wait ends before the motion.
    MotionEnd EndAtLimit() const;

    const ProcessData& Last() const { return last; }

    /// Whether position or state differ from those before the request.
    bool HasChanged() const;

    /// Whether they have differed at any time since.
    bool HasDiffered() const { return differed; }

    /// Whether the state is the end state of such a motion.
    bool IsAtGoal() const { return Goal().has_value(); }

    /// Whether process data may be missing, or were for some time.
    bool IsUncertain() const { return wasLost || !last.certain; }

private:
    bool HasMoved() const { return IsMotion(before.position, last.position); }
    bool IsReported() const;
    std::optional<MotionEnd> Goal() const;

    MotionKind kind;
    ProcessData before;
    ProcessData last;
    TimePoint start;
    RestDetector rest;
    bool differed = false;       // from the process data before, at any time
    bool stateDiffered = false;  // the state alone
    bool moved = false;          // the position has differed, at any time
    bool began = false;          // the gripper has reported the motion itself
    bool wasLost = false;        // process data have disappeared
};

}  // namespace tavrik
