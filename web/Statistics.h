#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <map>
#include <mutex>
#include <nlohmann/json_fwd.hpp>
#include <string>

namespace tavrik {

/// How the calls for one gripper went since the start.
struct CallStatistics {
    /// Upper bounds of the histogram, in seconds.
    static constexpr std::array kBounds{0.005, 0.01, 0.025, 0.05, 0.1, 0.25, 0.5, 1.0, 2.5};

    /// The key of refusals that would be one code too many: a faulty master may send any.
    static constexpr int kOtherCode = -2;

    std::map<int, std::uint64_t> refusals;  ///< by status code
    std::uint64_t timeouts = 0;             ///< status 5, and calls that the daemon did not answer
    std::uint64_t calls = 0;
    double seconds = 0;  ///< of all calls
    double slowest = 0;
    std::array<std::uint64_t, kBounds.size()> within{};  ///< calls that took up to each bound

    nlohmann::ordered_json Json() const;
};

/// The statistics of all grippers, by device string. Any thread may call.
class Statistics {
public:
    /// Takes a call that was answered with `status`; -1 if there was no answer.
    void Add(const std::string& device, int status, std::chrono::duration<double> time);

    CallStatistics Of(const std::string& device) const;

private:
    mutable std::mutex mutex;  // guards `grippers`
    std::map<std::string, CallStatistics> grippers;
};

}  // namespace tavrik
