#include "simulator/AnswerQueue.h"

#include <gtest/gtest.h>

#include <chrono>

namespace simulator {
namespace {

using std::chrono::milliseconds;

constexpr TimePoint kNow{std::chrono::hours(1)};

TEST(AnswerQueueTest, ATextComesOutWhenItIsDueAndNotBefore) {
    AnswerQueue queue;
    queue.Push("late\n", kNow + milliseconds(10));
    EXPECT_EQ(queue.Pop(kNow + milliseconds(9)), "");
    EXPECT_EQ(queue.NextDue(), kNow + milliseconds(10));
    EXPECT_EQ(queue.Pop(kNow + milliseconds(10)), "late\n");
    EXPECT_EQ(queue.NextDue(), std::nullopt);
}

TEST(AnswerQueueTest, TextsThatAreDueTogetherKeepTheirOrder) {
    AnswerQueue queue;
    queue.Push("first", kNow);
    queue.Push("second", kNow);
    EXPECT_EQ(queue.Pop(kNow), "first");
    EXPECT_EQ(queue.Pop(kNow), "second");
}

TEST(AnswerQueueTest, AnEarlierTextOvertakesALaterOne) {
    AnswerQueue queue;
    queue.Push("late", kNow + milliseconds(100));
    queue.Push("early", kNow);
    EXPECT_EQ(queue.Pop(kNow + milliseconds(100)), "early");
    EXPECT_EQ(queue.Pop(kNow + milliseconds(100)), "late");
}

TEST(AnswerQueueTest, ALongTextLeavesInPiecesWithPausesBetweenThem) {
    AnswerQueue queue;
    queue.SetPieceLength(4);
    queue.Push("123456789", kNow);
    EXPECT_EQ(queue.Pop(kNow), "1234");
    EXPECT_EQ(queue.Pop(kNow), "");
    EXPECT_EQ(queue.Pop(kNow + milliseconds(1)), "5678");
    EXPECT_EQ(queue.Pop(kNow + milliseconds(2)), "9");
    EXPECT_EQ(queue.Pop(kNow + milliseconds(9)), "");
}

TEST(AnswerQueueTest, NothingComesBetweenThePiecesOfAText) {
    AnswerQueue queue;
    queue.SetPieceLength(4);
    queue.Push("123456", kNow);
    EXPECT_FALSE(queue.InsideText());
    EXPECT_EQ(queue.Pop(kNow), "1234");
    EXPECT_TRUE(queue.InsideText());
    queue.Push("abc", kNow - milliseconds(50));
    EXPECT_EQ(queue.Pop(kNow + milliseconds(1)), "56");
    EXPECT_FALSE(queue.InsideText());
    EXPECT_EQ(queue.Pop(kNow + milliseconds(1)), "abc");
}

}  // namespace
}  // namespace simulator
