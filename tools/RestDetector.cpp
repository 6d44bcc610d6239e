#include "tools/RestDetector.h"

#include <cmath>

namespace tavrikctl {

namespace {
constexpr std::chrono::milliseconds kRest(500);
constexpr double kTremor = 0.025;  // two steps of a position; it is no motion
}  // namespace

bool RestDetector::IsAtRest(double position, int state, TimePoint now) {
    if (!resting || std::abs(position - resting->position) > kTremor || state != resting->state) {
        resting = {position, state, now};
    }
    return now - resting->since >= kRest;
}

}  // namespace tavrikctl
