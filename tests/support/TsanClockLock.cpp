#include <pthread.h>

#include <chrono>
#include <ctime>

// The thread sanitizer of gcc 12 does not intercept pthread_mutex_clocklock(), which
// std::timed_mutex calls, and so misses the lock. It does intercept pthread_mutex_timedlock(),
// whose deadline uses the system clock.

namespace {

constexpr long kNanosecondsPerSecond = std::nano::den;

timespec Now(clockid_t clock) {
    timespec now{};
    ::clock_gettime(clock, &now);
    return now;
}

timespec ToWallClock(clockid_t clock, const timespec& deadline) {
    const timespec now = Now(clock);
    timespec wall = Now(CLOCK_REALTIME);
    wall.tv_sec += deadline.tv_sec - now.tv_sec;
    wall.tv_nsec += deadline.tv_nsec - now.tv_nsec;
    if (wall.tv_nsec < 0) {
        wall.tv_nsec += kNanosecondsPerSecond;
        --wall.tv_sec;
    } else if (wall.tv_nsec >= kNanosecondsPerSecond) {
        wall.tv_nsec -= kNanosecondsPerSecond;
        ++wall.tv_sec;
    }
    return wall;
}

}  // namespace

extern "C" int pthread_mutex_clocklock(pthread_mutex_t* mutex, clockid_t clock,
                                       const timespec* deadline) noexcept {
    const timespec wall = ToWallClock(clock, *deadline);
    return ::pthread_mutex_timedlock(mutex, &wall);
}
