#include "web/Statistics.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

namespace {

using std::chrono::milliseconds;
using tavrik::Statistics;

TEST(StatisticsTest, CountsCallsOfEachGripper) {
    Statistics statistics;
    statistics.Add("A", 0, milliseconds(4));
    statistics.Add("A", 3, milliseconds(30));
    statistics.Add("A", 5, milliseconds(1000));
    statistics.Add("A", -1, milliseconds(10000));
    const auto calls = statistics.Of("A");
    EXPECT_EQ(calls.Json().dump(), R"({"calls":4,"refusals":1,"timeouts":2,"slowest":10.0})");
    EXPECT_EQ(calls.refusals.at(3), 1U);
    EXPECT_EQ(calls.within.front(), 1U);
    EXPECT_EQ(calls.within.back(), 3U);
    EXPECT_EQ(statistics.Of("B").calls, 0U);
}

TEST(StatisticsTest, KeepsFewCodes) {
    Statistics statistics;
    for (int code = 1; code < 1000; ++code) {
        statistics.Add("A", 1000 + code, milliseconds(1));
    }
    EXPECT_LE(statistics.Of("A").refusals.size(), 17U);
    EXPECT_EQ(statistics.Of("A").Json()["refusals"], 999);
}

}  // namespace
