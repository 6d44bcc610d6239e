#include "bench/Percentile.h"

#include <gtest/gtest.h>

#include <vector>

namespace bench {
namespace {

using std::chrono::nanoseconds;

TEST(PercentileTest, OneTimeIsEveryPercentile) {
    const std::vector<nanoseconds> times{nanoseconds(1500)};
    EXPECT_EQ(PercentileUs(times, 0.1), 1.5);
    EXPECT_EQ(PercentileUs(times, 100), 1.5);
}

TEST(PercentileTest, IsTheSmallestTimeThatSoManyDoNotExceed) {
    std::vector<nanoseconds> times;
    for (int number = 1; number <= 200; ++number) {
        times.emplace_back(number * 1000);
    }
    EXPECT_EQ(PercentileUs(times, 50), 100);
    EXPECT_EQ(PercentileUs(times, 90), 180);
    EXPECT_EQ(PercentileUs(times, 99), 198);
    EXPECT_EQ(PercentileUs(times, 99.1), 199);
    EXPECT_EQ(PercentileUs(times, 99.9), 200);
    EXPECT_EQ(PercentileUs(times, 100), 200);
}

TEST(PercentileTest, MedianOfTwoTimesIsTheLower) {
    const std::vector<nanoseconds> times{nanoseconds(1000), nanoseconds(3000)};
    EXPECT_EQ(PercentileUs(times, 50), 1);
}

}  // namespace
}  // namespace bench
