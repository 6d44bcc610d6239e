#pragma once

#include <chrono>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>

#include "client/MotionJudge.h"
#include "client/ProcessData.h"

namespace tavrik {

/// The likely reason why a motion did not reach its end.
enum class MotionObstacle {
    None,             ///< no reason was found, or the motion has reached its end
    NoReference,      ///< the gripper needs a reference run first
    ReferenceFailed,  ///< the reference run ended without a reference
    NeedsChange,      ///< the previous request was a reference run, too; only another request in
                      ///< between makes it start again
    OverrideZero,     ///< the override of the motion is 0
    NoSuchSet,        ///< the gripper does not have the parameter set
    SameState,        ///< the gripper had already reached the end of such a motion
    Holdfast,         ///< the gripper still holds its part, as with holdfast
    OtherRequest,     ///< another request came between, such as one that switches the drive off
    SameData,         ///< the process data have not changed at all: they may be frozen
};

/// How a motion ended.
struct MotionResult {
    MotionKind kind;
    MotionEnd end;
    ProcessData data;  ///< at that time
    bool changed;      ///< whether position or state differ from those before the request
    MotionObstacle obstacle = MotionObstacle::None;
    /// How long the part was watched, if it was.
    std::optional<std::chrono::milliseconds> held = std::nullopt;
    /// Whether the drive is off, if it was to be switched off after an interruption.
    std::optional<bool> isOff = std::nullopt;

    /// In words, such as "gripped a part at 12.50 (state 6)".
    std::string Text() const;

    /// Where the gripper is, such as "at 12.50 (state 6)".
    std::string PlaceText() const;

    /// Adds every value to a JSON object.
    void AddTo(nlohmann::ordered_json& object) const;

private:
    std::string EndText() const;
    std::string ObstacleText() const;
};

}  // namespace tavrik
