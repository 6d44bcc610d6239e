#include "web/DriveOffs.h"

#include <gtest/gtest.h>

#include <atomic>
#include <nlohmann/json.hpp>

#include "tests/support/WaitFor.h"

namespace tavrik {
namespace {

using support::WaitFor;

/// Calls of the daemon end when the test allows it.
class DriveOffsTest : public testing::Test {
protected:
    ~DriveOffsTest() override { mayEnd = true; }

    bool Enqueue(const std::string& device) {
        return driveOffs.Enqueue(PageCommand({{"gripper", device}, {"command", "disable"}}),
                                 [this](const CommandResult& result) {
                                     EXPECT_EQ(result.text, "done");
                                     ++answered;
                                 });
    }

    std::atomic<bool> mayEnd = false;
    std::atomic<int> calls = 0;
    std::atomic<int> answered = 0;
    DriveOffs driveOffs{Endpoint(), [this](const PageCommand& /*command*/, Daemon& /*daemon*/) {
                            ++calls;
                            WaitFor([this] { return mayEnd.load(); });
                            return CommandResult{true, "done"};
                        }};
};

TEST_F(DriveOffsTest, AnyNumberForOneGripperIsTakenAndAnsweredByTheNextCall) {
    ASSERT_TRUE(Enqueue("a"));
    ASSERT_TRUE(WaitFor([&] { return calls == 1; }));
    for (int i = 0; i < 100; ++i) {
        ASSERT_TRUE(Enqueue("a"));
    }
    mayEnd = true;
    EXPECT_TRUE(WaitFor([&] { return answered == 101; }));
    EXPECT_EQ(calls, 2);
}

TEST_F(DriveOffsTest, ThoseOfTwoGrippersRunAtTheSameTime) {
    EXPECT_TRUE(Enqueue("a"));
    EXPECT_TRUE(Enqueue("b"));
    EXPECT_TRUE(WaitFor([&] { return calls == 2; }));
}

TEST_F(DriveOffsTest, EachGripperOfALargeCellIsTaken) {
    constexpr int kGrippers = 32;
    for (int i = 0; i < kGrippers; ++i) {
        EXPECT_TRUE(Enqueue(std::to_string(i)));
    }
    ASSERT_TRUE(WaitFor([&] { return calls == 4; }));  // more are not made at the same time
    for (int i = 0; i < kGrippers; ++i) {
        EXPECT_TRUE(Enqueue(std::to_string(i)));
    }
    mayEnd = true;
    EXPECT_TRUE(WaitFor([&] { return answered == 2 * kGrippers; }));
}

}  // namespace
}  // namespace tavrik
