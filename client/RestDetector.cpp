#include "client/RestDetector.h"

#include <cmath>

namespace tavrik {

namespace {
constexpr std::chrono::milliseconds kRest(500);
constexpr std::chrono::milliseconds kLongestGap(200);
constexpr double kTremor = 0.025;  // two steps of a position; it is no motion
}  // namespace

bool RestDetector::IsMotion(double from, double to) {
    return std::abs(to - from) > kTremor;
}

bool RestDetector::IsAtRest(double position, int state, TimePoint now) {
    const bool wasAway = now - lastLook > kLongestGap;
    lastLook = now;
    if (!resting || wasAway || IsMotion(resting->position, position) || state != resting->state) {
        resting = {position, state, now};
    }
    return now - resting->since >= kRest;
}

}  // namespace tavrik
