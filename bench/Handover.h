#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

#include "bench/LineBuffer.h"
#include "simulator/FileDescriptor.h"

namespace bench {

/// One request and its answer at the least cost that two threads allow: the caller writes and
/// sleeps, another thread reads the answer and wakes it.
class Handover {
public:
    /// Opens the tty of a master.
    /// @throws std::system_error
    explicit Handover(const std::string& path);

    /// Takes one round more, which ends the other thread's read; 1 s when the master is silent.
    ~Handover();
    Handover(const Handover&) = delete;
    Handover& operator=(const Handover&) = delete;

    /// Has the master take process output.
    /// @return how long it took until the answer was here
    /// @throws std::runtime_error when there is none within 1 s
    std::chrono::nanoseconds Round();

private:
    bool Send() const;
    void Read(const std::stop_token& stop);
    void TakeLine(std::string_view line);

    simulator::FileDescriptor tty;
    std::mutex mutex;  // guards answered
    std::condition_variable condition;
    bool answered = false;
    std::jthread reader;
};

}  // namespace bench
