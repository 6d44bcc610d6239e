#include "tests/support/FailingLock.h"

#include <pthread.h>

#include <cerrno>

namespace {

thread_local bool armed = false;
thread_local unsigned spared = 0;

bool IsToFail() {
    if (!armed) {
        return false;
    }
    if (spared > 0) {
        --spared;
        return false;
    }
    armed = false;
    return true;
}

}  // namespace

// The linker's names for the wrapped function.
extern "C" {
int __real_pthread_mutex_lock(pthread_mutex_t* mutex);  // NOLINT(bugprone-reserved-identifier)
int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex);  // NOLINT(bugprone-reserved-identifier)

int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex) {
    return IsToFail() ? EINVAL : __real_pthread_mutex_lock(mutex);
}
}

namespace support {

FailingLock::FailingLock(unsigned sparedCalls) {
    spared = sparedCalls;
    armed = true;
}

FailingLock::~FailingLock() {
    armed = false;
}

}  // namespace support
