#pragma once

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <system_error>

#include "simulator/FileDescriptor.h"

namespace bench {

/// A time that one process leaves for another, in a file that both have in memory. No call into
/// the kernel, so that it costs next to nothing where it is taken.
class SharedTime {
public:
    using Clock = std::chrono::system_clock;  // CLOCK_REALTIME, as in the kernel's timestamps

    /// @param path of a file that exists
    /// @throws std::system_error
    explicit SharedTime(const std::string& path) {
        const simulator::FileDescriptor file(open(path.c_str(), O_RDWR | O_CLOEXEC));
        void* memory = MAP_FAILED;
        if (file.Get() != -1 && ftruncate(file.Get(), sizeof(Nanoseconds)) == 0) {
            memory = mmap(nullptr, sizeof(Nanoseconds), PROT_READ | PROT_WRITE, MAP_SHARED,
                          file.Get(), 0);
        }
        if (memory == MAP_FAILED) {
            throw std::system_error(errno, std::generic_category(), path);
        }
        nanoseconds = static_cast<Nanoseconds*>(memory);
    }
    SharedTime(const SharedTime&) = delete;
    SharedTime& operator=(const SharedTime&) = delete;
    ~SharedTime() { munmap(nanoseconds, sizeof(Nanoseconds)); }

    /// Leaves the time of now.
    void SetToNow() { *nanoseconds = Clock::now().time_since_epoch().count(); }

    /// @return the time that was left since the last call, if there is one
    std::optional<Clock::time_point> Take() {
        const std::int64_t time = nanoseconds->exchange(0);
        return time == 0 ? std::nullopt : std::optional(Clock::time_point(Clock::duration(time)));
    }

private:
    using Nanoseconds = std::atomic<std::int64_t>;
    static_assert(Nanoseconds::is_always_lock_free && Clock::period::den == 1'000'000'000);

    Nanoseconds* nanoseconds = nullptr;
};

}  // namespace bench
