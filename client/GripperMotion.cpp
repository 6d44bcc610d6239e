#include "client/GripperMotion.h"

#include <array>
#include <functional>
#include <optional>
#include <thread>

#include "client/Failure.h"
#include "client/Values.h"

namespace tavrik {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds kPollPause(10);
constexpr std::chrono::seconds kHoldProbePause(1);  // while a part is held

/// In the order of MotionKind.
constexpr std::array kMotionMethods{"Grip", "Release", "Reference", "Disable"};

/// Polls until the motion has ended. @return false if it was interrupted before
bool PollUntil(const std::function<bool()>& hasEnded, const std::stop_token& stop) {
    try {
        while (!stop.stop_requested()) {
            if (hasEnded()) {
                return true;
            }
            std::this_thread::sleep_for(kPollPause);
        }
    } catch (const Failure&) {  // also of a call that was interrupted
        if (!stop.stop_requested()) {
            throw;
        }
    }
    return false;
}

}  // namespace

int GripperMotion::Start() {
    if (kind != MotionKind::Disable) {
        before = gripper.ReadProcessData();
    } else {
        ReadBeforeDisable();
    }
    xmlrpc_c::carray arguments;
    if (kind == MotionKind::Grip || kind == MotionKind::Release) {
        arguments.push_back(xmlrpc_c::value_int(set));
    }
    const int status =
        gripper.Command(kMotionMethods.at(static_cast<std::size_t>(kind)), arguments);
    start = Clock::now();
    return status;
}

/// The drive must be switched off even if nothing can be read.
void GripperMotion::ReadBeforeDisable() {
    try {
        before = gripper.ReadProcessData();
    } catch (const Failure&) {
        before = ProcessData(0);
    }
}

MotionResult GripperMotion::AwaitEnd(std::chrono::milliseconds limit, const std::stop_token& stop) {
    using Progress = MotionJudge::Progress;
    ProcessDataReader reader(gripper);
    MotionJudge judge(kind, before, start);
    std::optional<MotionResult> result;
    const auto hasEnded = [&] {
        const Progress progress = judge.Add(reader.Read(), Clock::now());
        if (progress == Progress::Reported) {
            result = Judge(judge, judge.End());
        } else if (progress == Progress::AtRest) {
            result = JudgeAtRest(judge, judge.End());
            if (MayContinue(*result)) {
                result.reset();
                judge.RestartRest();
            }
        } else if (Clock::now() - start > limit) {
            result = JudgeAtLimit(judge);
        }
        return result.has_value();
    };
    return PollUntil(hasEnded, stop) ? *result : Judge(judge, MotionEnd::Interrupted);
}

MotionResult GripperMotion::Judge(const MotionJudge& judge, MotionEnd end) const {
    MotionResult result{kind, end, judge.Last(), judge.HasChanged()};
    if (end == MotionEnd::DidNotMove || end == MotionEnd::Stopped) {
        result.obstacle = FindObstacle(judge, end);
        const bool isUnexplained = result.obstacle == MotionObstacle::None;
        if (end == MotionEnd::DidNotMove && isUnexplained && !judge.HasDiffered()) {
            result.end = MotionEnd::NotReported;
            result.obstacle = MotionObstacle::SameData;
        }
    }
    return result;
}

/// The gripper has reported nothing: the process data may be old, or missing.
MotionResult GripperMotion::JudgeAtRest(const MotionJudge& judge, MotionEnd end) const {
    const ProcessData data = judge.Last();
    RequireAnswer(data);
    if (!data.certain) {
        throw Failure(ExitStatus::NoProcessData,
                      gripper.Name() + ": no process data, or at rest at 0.00 in state 0");
    }
    if (judge.IsUncertain()) {
        throw Failure(ExitStatus::NoProcessData,
                      gripper.Name() + ": process data were lost during the wait; at rest at " +
                          HundredthsText(data.position) + " in state " +
                          std::to_string(data.state));
    }
    return Judge(judge, end);
}

/// Whether the gripper reports a motion that its position does not show: the motion is slow, or
/// force builds up on a part. A drive that was to be switched off is not waited for.
bool GripperMotion::MayContinue(const MotionResult& result) const {
    const bool isUnfinished =
        result.end == MotionEnd::DidNotMove || result.end == MotionEnd::Stopped;
    return kind != MotionKind::Disable && isUnfinished && result.obstacle == MotionObstacle::None &&
           IsMoving(result.data.State());
}

/// A motion may be too slow for its position to change visibly within the limit. It may also begin
/// only after the limit: a gripper that has not been at rest for half a second is not said to be
/// there already.
MotionResult GripperMotion::JudgeAtLimit(const MotionJudge& judge) const {
    MotionResult result = JudgeAtRest(judge, judge.EndAtLimit());
    if (result.obstacle == MotionObstacle::SameState) {
        result.end = MotionEnd::NotReported;
        result.obstacle = MotionObstacle::None;
    }
    const bool isStill =
        result.end == MotionEnd::DidNotMove || result.end == MotionEnd::NotReported;
    if (isStill && IsMoving(judge.Last().State()) &&
        result.obstacle != MotionObstacle::OverrideZero) {
        result.end = MotionEnd::Moving;
        result.obstacle = MotionObstacle::None;
    }
    return result;
}

void GripperMotion::RequireAnswer(const ProcessData& data) const {
    if (!gripper.MasterAnswers()) {
        throw Failure(ExitStatus::NoAnswer, gripper.Name() +
                                                ": its master stopped answering; last position " +
                                                HundredthsText(data.position));
    }
}

MotionObstacle GripperMotion::FindObstacle(const MotionJudge& judge, MotionEnd end) const {
    const GripperState state = judge.Last().State();
    if (kind == MotionKind::Disable) {
        return state == GripperState::Holding ? MotionObstacle::Holdfast : MotionObstacle::None;
    }
    if (state == GripperState::NeedsReference) {
        return kind != MotionKind::Reference ? MotionObstacle::NoReference
               : end == MotionEnd::Stopped   ? MotionObstacle::ReferenceFailed
                                             : MotionObstacle::NeedsChange;
    }
    if (kind == MotionKind::Reference && judge.IsAtGoal()) {
        return MotionObstacle::NeedsChange;
    }
    if (IsMoving(state)) {
        return kind != MotionKind::Reference && IsOverrideZero() ? MotionObstacle::OverrideZero
                                                                 : MotionObstacle::None;
    }
    if (kind != MotionKind::Reference && IsSetMissing()) {
        return MotionObstacle::NoSuchSet;
    }
    if (judge.IsAtGoal()) {
        return MotionObstacle::SameState;
    }
    const bool isKnown = state <= GripperState::Referenced;
    return judge.HasDiffered() && isKnown ? MotionObstacle::OtherRequest : MotionObstacle::None;
}

bool GripperMotion::IsOverrideZero() const {
    return gripper.Get<int>(kind == MotionKind::Grip ? "GetOverrideGrip" : "GetOverrideRelease") ==
           0;
}

/// A limit that cannot be read is 0, too. No gripper opens and closes to 0.
bool GripperMotion::IsSetMissing() const {
    return gripper.Get<double>("GetNoPartLimit", set) == 0 &&
           gripper.Get<double>("GetReleaseLimit", set) == 0;
}

MotionResult GripperMotion::Hold(const MotionResult& gripped, std::chrono::milliseconds time,
                                 const std::stop_token& stop) const {
    const auto begin = Clock::now();
    auto nextProbe = begin + kHoldProbePause;
    ProcessDataReader reader(gripper);
    MotionResult result = gripped;
    result.held = std::chrono::milliseconds::zero();
    const auto hasEnded = [&] {
        const auto now = Clock::now();
        result.data = reader.Read();
        result.held = std::chrono::duration_cast<std::chrono::milliseconds>(now - begin);
        result.end = EndOfHold(result.data);
        if (result.end != MotionEnd::Gripped) {
            return true;
        }
        const bool isOver = result.held >= time;
        if (isOver || now >= nextProbe) {
            RequireAnswer(result.data);
            nextProbe = now + kHoldProbePause;
        }
        return isOver;
    };
    if (!PollUntil(hasEnded, stop)) {
        result.end = MotionEnd::Interrupted;
    }
    return result;
}

MotionEnd GripperMotion::EndOfHold(const ProcessData& data) const {
    if (!data.certain) {
        throw Failure(ExitStatus::NoProcessData,
                      gripper.Name() + ": process data were lost while the part was held");
    }
    if (data.IsFaulty()) {
        return MotionEnd::Faulty;
    }
    return data.State() == GripperState::Holding ? MotionEnd::Gripped : MotionEnd::PartLost;
}

}  // namespace tavrik
