#include "tools/RestDetector.h"

#include <gtest/gtest.h>

namespace tavrikctl {
namespace {

using std::chrono::milliseconds;

class RestDetectorTest : public testing::Test {
protected:
    bool IsAtRest(double position, int state, int ms) {
        return detector.IsAtRest(position, state, RestDetector::TimePoint(milliseconds(ms)));
    }

private:
    RestDetector detector;
};

TEST_F(RestDetectorTest, HalfASecondWithoutChangeIsRest) {
    EXPECT_FALSE(IsAtRest(5, 4, 1000));
    EXPECT_FALSE(IsAtRest(5, 4, 1499));
    EXPECT_TRUE(IsAtRest(5, 4, 1500));
}

TEST_F(RestDetectorTest, AMotionBeginsTheTimeAnew) {
    EXPECT_FALSE(IsAtRest(5, 4, 1000));
    EXPECT_FALSE(IsAtRest(5.03, 4, 1400));
    EXPECT_FALSE(IsAtRest(5.03, 4, 1899));
    EXPECT_TRUE(IsAtRest(5.03, 4, 1900));
}

TEST_F(RestDetectorTest, AChangeOfStateBeginsTheTimeAnew) {
    EXPECT_FALSE(IsAtRest(5, 4, 1000));
    EXPECT_FALSE(IsAtRest(5, 5, 1500));
    EXPECT_TRUE(IsAtRest(5, 5, 2000));
}

TEST_F(RestDetectorTest, TrembleIsNoMotionButSlowMotionIs) {
    EXPECT_FALSE(IsAtRest(5, 4, 1000));
    EXPECT_FALSE(IsAtRest(5.02, 4, 1300));
    EXPECT_TRUE(IsAtRest(4.98, 4, 1500));
    EXPECT_FALSE(IsAtRest(5.04, 4, 1600));
}

}  // namespace
}  // namespace tavrikctl
