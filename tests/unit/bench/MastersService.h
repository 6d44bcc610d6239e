#pragma once

#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>

#include "bench/FastMasters.h"
#include "simulator/FileDescriptor.h"

namespace bench {

/// Serves masters on a thread for as long as it lives; nobody else may touch them meanwhile.
class MastersService {
public:
    explicit MastersService(FastMasters& masters) {
        masters.Watch(stop.Get());
        thread = std::jthread([this, &masters] {
            threadId = gettid();
            while (masters.Serve() != stop.Get()) {
            }
            masters.Unwatch(stop.Get());
        });
    }
    MastersService(const MastersService&) = delete;
    MastersService& operator=(const MastersService&) = delete;
    ~MastersService() { eventfd_write(stop.Get(), 1); }

    /// Whether the thread waits for something to happen.
    bool IsAsleep() const {
        std::ifstream file("/proc/self/task/" + std::to_string(threadId) + "/stat");
        const std::string text{std::istreambuf_iterator<char>(file), {}};
        return text.find(") S ") != std::string::npos;
    }

private:
    simulator::FileDescriptor stop{eventfd(0, EFD_CLOEXEC)};
    std::atomic<pid_t> threadId = 0;
    std::jthread thread;
};

}  // namespace bench
