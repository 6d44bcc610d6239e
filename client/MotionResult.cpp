#include "client/MotionResult.h"

#include <array>
#include <nlohmann/json.hpp>
#include <utility>

#include "client/Values.h"

namespace tavrik {

namespace {

/// A word for JSON, and a text.
using Naming = std::pair<const char*, const char*>;

/// In the order of MotionEnd.
constexpr std::array<Naming, 12> kEnds{{
    {"gripped", "gripped a part"},
    {"no-part", "reached the limit without a part"},
    {"released", "released"},
    {"referenced", "referenced"},
    {"off", "switched off"},
    {"did-not-move", "did not move,"},
    {"stopped", "stopped on the way"},
    {"fault", "stopped by a fault"},
    {"moving", "still moving,"},
    {"interrupted", "interrupted"},
    {"part-lost", "lost the part"},
    {"not-reported", "no motion reported, last seen"},
}};

/// In the order of MotionObstacle, which the words name.
constexpr std::array<Naming, 10> kObstacles{{
    {nullptr, ""},
    {"no-reference", "no reference run yet"},
    {"reference-failed", "something may be in the way"},
    {"needs-change", "the previous reference run is still requested"},
    {"override-zero", "its override is 0"},
    {"no-such-set", "no such parameter set, both limits read 0"},
    {"same-state", "it was already there"},
    {"holdfast", "holdfast may be on"},
    {"other-request", "another request came between, or the drive was switched off"},
    {"same-data", "its process data have not changed and may be frozen"},
}};

const Naming& NamingOf(MotionEnd end) {
    return kEnds.at(static_cast<std::size_t>(end));
}

const Naming& NamingOf(MotionObstacle obstacle) {
    return kObstacles.at(static_cast<std::size_t>(obstacle));
}

std::string TenthsText(std::chrono::milliseconds time) {
    constexpr int kTenthsPerSecond = 10;
    const auto tenths = time / std::chrono::milliseconds(100);
    return std::to_string(tenths / kTenthsPerSecond) + "." +
           std::to_string(tenths % kTenthsPerSecond) + " s";
}

}  // namespace

std::string MotionResult::Text() const {
    std::string text = EndText();
    if (end == MotionEnd::PartLost && held) {
        text += " after " + TenthsText(*held) + ",";
    }
    text += " " + PlaceText();
    if (end == MotionEnd::Gripped && held) {
        text += ", held for " + TenthsText(*held);
    }
    const std::string reason = ObstacleText();
    const std::string flags = data.FlagText();
    return text + (reason.empty() ? "" : ": " + reason) + (flags.empty() ? "" : ", " + flags);
}

std::string MotionResult::EndText() const {
    if (kind == MotionKind::Disable && end == MotionEnd::DidNotMove) {
        return "did not switch off";
    }
    if (kind == MotionKind::Disable && end == MotionEnd::NotReported) {
        return "did not report that it is off, last seen";
    }
    return NamingOf(end).second;
}

std::string MotionResult::PlaceText() const {
    return "at " + HundredthsText(data.position) + " (state " + std::to_string(data.state) + ")";
}

std::string MotionResult::ObstacleText() const {
    if (obstacle == MotionObstacle::None && end == MotionEnd::DidNotMove) {
        return "reason unknown";
    }
    if (obstacle == MotionObstacle::SameState && data.State() == GripperState::Holding) {
        return "it already held a part";
    }
    return NamingOf(obstacle).second;
}

void MotionResult::AddTo(nlohmann::ordered_json& object) const {
    data.AddTo(object);
    object["changed"] = changed;
    object["result"] = NamingOf(end).first;
    const char* const word = NamingOf(obstacle).first;
    object["reason"] = word == nullptr ? nlohmann::ordered_json() : nlohmann::ordered_json(word);
    if (held) {
        object["held"] = std::chrono::duration<double>(*held).count();
    }
    if (isOff) {
        object["switchedOff"] = *isOff;
    }
}

}  // namespace tavrik
