#pragma once

namespace support {

/// For its scope, std::mutex::lock() throws std::system_error on the thread that made the object:
/// once, after `spared` calls have succeeded. Other mutexes that lock without a limit count too.
///
/// The executable is linked with --wrap=pthread_mutex_lock.
class FailingLock {
public:
    explicit FailingLock(unsigned spared = 0);
    FailingLock(const FailingLock&) = delete;
    FailingLock& operator=(const FailingLock&) = delete;
    ~FailingLock();
};

}  // namespace support
