#include "bench/Percentile.h"

#include <cmath>
#include <cstddef>

namespace bench {

double PercentileUs(std::span<const std::chrono::nanoseconds> sorted, double percent) {
    const double rank = std::ceil(percent / 100 * static_cast<double>(sorted.size()));
    return std::chrono::duration<double, std::micro>(sorted[static_cast<std::size_t>(rank) - 1])
        .count();
}

}  // namespace bench
