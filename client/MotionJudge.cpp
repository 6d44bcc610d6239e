#include "client/MotionJudge.h"

#include <cmath>

namespace tavrik {

namespace {

constexpr std::chrono::milliseconds kRest(500);
constexpr std::chrono::milliseconds kLongestGap(200);
constexpr double kTremor = 0.025;  // two steps of a position; not a motion

/// What is read so soon after a request may be from before it.
constexpr std::chrono::milliseconds kOldData(25);

/// The state during a motion; nothing for Disable.
std::optional<GripperState> StateDuring(MotionKind kind) {
    switch (kind) {
        case MotionKind::Grip:
            return GripperState::Gripping;
        case MotionKind::Release:
            return GripperState::Releasing;
        case MotionKind::Reference:
            return GripperState::Referencing;
        default:
            return std::nullopt;
    }
}

}  // namespace

bool IsMotion(double from, double to) {
    return std::abs(to - from) > kTremor;
}

bool IsMoving(GripperState state) {
    return state == GripperState::Gripping || state == GripperState::Releasing ||
           state == GripperState::Referencing;
}

bool RestDetector::IsAtRest(double position, int state, TimePoint now) {
    const bool hadGap = now - lastSample > kLongestGap;
    lastSample = now;
    if (!resting || hadGap || IsMotion(resting->position, position) || state != resting->state) {
        resting = {position, state, now};
    }
    return now - resting->since >= kRest;
}

MotionJudge::Progress MotionJudge::Add(const ProcessData& data, TimePoint now) {
    wasLost = wasLost || (last.certain && !data.certain);
    last = data;
    stateDiffered = stateDiffered || data.state != before.state;
    differed = differed || HasChanged();
    moved = moved || HasMoved();
    began = began || data.State() == StateDuring(kind);
    const bool isAtRest = rest.IsAtRest(data.position, data.state, now);
    if (now - start >= kOldData && !IsUncertain() && IsReported()) {
        return Progress::Reported;
    }
    return isAtRest ? Progress::AtRest : Progress::Going;
}

/// A state that was already there before the request may be that of the previous motion, even if
/// the position still settles. So may one that is not the goal, as long as the gripper has not
/// reported the motion.
bool MotionJudge::IsReported() const {
    const bool isEnd = Goal() || last.IsFaulty();
    return isEnd ? stateDiffered : began && !IsMoving(last.State());
}

MotionEnd MotionJudge::End() const {
    if (last.IsFaulty()) {
        return MotionEnd::Faulty;
    }
    const auto goal = Goal();
    if (goal && (differed || goal == MotionEnd::SwitchedOff)) {
        return *goal;
    }
    return moved ? MotionEnd::Stopped : MotionEnd::DidNotMove;
}

MotionEnd MotionJudge::EndAtLimit() const {
    const MotionEnd end = End();
    return end == MotionEnd::Stopped ? MotionEnd::Moving : end;
}

bool MotionJudge::HasChanged() const {
    return last.state != before.state || HasMoved();
}

/// What the present state means as the end of this motion, if anything.
std::optional<MotionEnd> MotionJudge::Goal() const {
    const GripperState state = last.State();
    switch (kind) {
        case MotionKind::Grip:
            if (state == GripperState::Holding) {
                return MotionEnd::Gripped;
            }
            return state == GripperState::NoPart ? std::optional(MotionEnd::NoPart) : std::nullopt;
        case MotionKind::Release:
            return state == GripperState::Released ? std::optional(MotionEnd::Released)
                                                   : std::nullopt;
        case MotionKind::Reference:
            return state == GripperState::Referenced ? std::optional(MotionEnd::Referenced)
                                                     : std::nullopt;
        default:  // without a reference run, a gripper does not report that its drive is off
            return state == GripperState::Off || state == GripperState::NeedsReference
                       ? std::optional(MotionEnd::SwitchedOff)
                       : std::nullopt;
    }
}

}  // namespace tavrik
