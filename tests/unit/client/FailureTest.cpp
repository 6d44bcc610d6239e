#include "client/Failure.h"

#include <gtest/gtest.h>

namespace tavrik {
namespace {

TEST(StatusTextTest, EveryTextHasTheStatusNumber) {
    EXPECT_EQ(StatusText(0), "done");
    EXPECT_EQ(StatusText(3).find("status 3: unknown gripper"), 0U);
    EXPECT_EQ(StatusText(5).find("status 5: the gripper's master did not answer"), 0U);
    EXPECT_EQ(StatusText(12).find("status 12: nothing could be sent"), 0U);
    EXPECT_EQ(StatusText(21).find("status 21: no process data"), 0U);
    EXPECT_EQ(StatusText(44).find("status 44: error code of the gripper's master"), 0U);
}

TEST(StatusTextTest, TheDaemonsOwnStatusesAreExitStatuses) {
    for (const int status : {0, 3, 5, 12, 21}) {
        EXPECT_EQ(static_cast<int>(ExitStatusFor(status)), status);
    }
}

TEST(StatusTextTest, AMastersErrorCodeIsRefused) {
    for (const int status : {1, 2, 4, 6, 7, 8, 9, 44, 255, 256, -1}) {
        EXPECT_EQ(ExitStatusFor(status), ExitStatus::Refused) << status;
    }
}

}  // namespace
}  // namespace tavrik
