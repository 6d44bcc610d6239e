#pragma once

#include <algorithm>
#include <chrono>
#include <mutex>

namespace tavrik {

/// Allows a number of events a second, and as many at once. Any thread may call.
class RateLimit {
public:
    explicit RateLimit(double perSecond) : perSecond(perSecond), left(perSecond) {}

    bool Allow() {
        using Seconds = std::chrono::duration<double>;
        const std::lock_guard lock(mutex);
        const auto now = std::chrono::steady_clock::now();
        left = std::min(perSecond, left + Seconds(now - last).count() * perSecond);
        last = now;
        const bool isAllowed = left >= 1;
        left -= isAllowed ? 1 : 0;
        return isAllowed;
    }

private:
    const double perSecond;
    std::mutex mutex;  // guards what follows
    double left;
    std::chrono::steady_clock::time_point last = std::chrono::steady_clock::now();
};

}  // namespace tavrik
