#pragma once

namespace support {

/// During its lifetime, std::mutex::lock() throws std::system_error once on the thread that created
/// the object, after `spared` calls have succeeded. Other mutexes locked without a timeout count,
/// too.
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
