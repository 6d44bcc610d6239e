#include "bench/SharedTime.h"

#include <gtest/gtest.h>

#include "tests/unit/bench/EmptyFile.h"

namespace bench {
namespace {

TEST(SharedTimeTest, IsTakenOnceOnTheOtherSide) {
    const EmptyFile file;
    SharedTime left(file.path);
    SharedTime taken(file.path);
    EXPECT_EQ(taken.Take(), std::nullopt);
    const auto before = SharedTime::Clock::now();
    left.SetToNow();
    const auto after = SharedTime::Clock::now();
    const auto time = taken.Take();
    ASSERT_TRUE(time);
    EXPECT_GE(*time, before);
    EXPECT_LE(*time, after);
    EXPECT_EQ(taken.Take(), std::nullopt);
}

TEST(SharedTimeTest, OutlivesTheSideThatLeavesIt) {
    const EmptyFile file;
    SharedTime(file.path).SetToNow();
    EXPECT_TRUE(SharedTime(file.path).Take());
}

TEST(SharedTimeTest, NamesTheFileThatIsMissing) {
    try {
        const SharedTime missing("/nonexistent/file");
        FAIL();
    } catch (const std::system_error& error) {
        EXPECT_STREQ(error.what(), "/nonexistent/file: No such file or directory");
    }
}

}  // namespace
}  // namespace bench
