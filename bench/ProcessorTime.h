#pragma once

#include <chrono>
#include <ctime>

namespace bench {

/// Processor time of this process so far, all its threads.
inline std::chrono::nanoseconds ProcessorTime() {
    timespec time{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

}  // namespace bench
