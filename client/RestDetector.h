#pragma once

#include <chrono>
#include <optional>

namespace tavrik {

/// Tells from its values whether a gripper has come to rest: neither position nor state has changed
/// for half a second. As long as that may pass between a call and the begin of its motion. Who
/// does not look for 0.2 s has seen no rest meanwhile: what is read then may be old.
class RestDetector {
public:
    using TimePoint = std::chrono::steady_clock::time_point;

    /// Whether the fingers have moved from one position to the other.
    static bool IsMotion(double from, double to);

    /// Takes the values read at `now`.
    bool IsAtRest(double position, int state, TimePoint now);

private:
    struct Values {
        double position;
        int state;
        TimePoint since;
    };
    std::optional<Values> resting;
    TimePoint lastLook{};
};

}  // namespace tavrik
