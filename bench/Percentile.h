#pragma once

#include <chrono>
#include <span>

namespace bench {

/// The smallest of the times that at least `percent` of them do not exceed, in µs.
/// @param sorted not empty
/// @param percent above 0, up to 100
double PercentileUs(std::span<const std::chrono::nanoseconds> sorted, double percent);

}  // namespace bench
