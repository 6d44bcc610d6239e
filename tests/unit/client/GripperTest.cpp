#include "client/Gripper.h"

#include <gtest/gtest.h>

namespace tavrik {
namespace {

using std::chrono::milliseconds;

class RestDetectorTest : public testing::Test {
protected:
    bool IsAtRest(double position, int state, int ms) {
        return detector.IsAtRest(position, state, RestDetector::TimePoint(milliseconds(ms)));
    }

    /// Looks every 100 ms, from `first` on and before `last`.
    void KeepLooking(double position, int state, int first, int last) {
        for (int ms = first; ms < last; ms += 100) {
            EXPECT_FALSE(IsAtRest(position, state, ms)) << ms;
        }
    }

private:
    RestDetector detector;
};

TEST_F(RestDetectorTest, HalfASecondWithoutChangeIsRest) {
    KeepLooking(5, 4, 1000, 1500);
    EXPECT_FALSE(IsAtRest(5, 4, 1499));
    EXPECT_TRUE(IsAtRest(5, 4, 1500));
}

TEST_F(RestDetectorTest, AMotionRestartsTheWait) {
    KeepLooking(5, 4, 1000, 1400);
    KeepLooking(5.03, 4, 1400, 1900);
    EXPECT_FALSE(IsAtRest(5.03, 4, 1899));
    EXPECT_TRUE(IsAtRest(5.03, 4, 1900));
}

TEST_F(RestDetectorTest, AChangeOfStateRestartsTheWait) {
    KeepLooking(5, 4, 1000, 1500);
    KeepLooking(5, 5, 1500, 2000);
    EXPECT_TRUE(IsAtRest(5, 5, 2000));
}

TEST_F(RestDetectorTest, TremorIsNotMotionButSlowMotionIs) {
    KeepLooking(5, 4, 1000, 1300);
    KeepLooking(5.02, 4, 1300, 1500);
    EXPECT_TRUE(IsAtRest(4.98, 4, 1500));
    EXPECT_FALSE(IsAtRest(5.04, 4, 1600));
}

TEST_F(RestDetectorTest, ASamplingGapRestartsTheWait) {
    KeepLooking(5, 4, 1000, 1400);
    KeepLooking(5, 4, 1501, 2001);
    EXPECT_TRUE(IsAtRest(5, 4, 2001));
}

}  // namespace
}  // namespace tavrik
