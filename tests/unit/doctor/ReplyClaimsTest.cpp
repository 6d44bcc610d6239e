#include "doctor/log/ReplyClaims.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace tavrik {
namespace {

using Replies = std::vector<std::uint64_t>;

Replies Sorted(Replies replies) {
    std::ranges::sort(replies);
    return replies;
}

TEST(ReplyClaimsTest, TheOnlyPossibleReplyIsTaken) {
    ReplyClaims claims;
    EXPECT_EQ(claims.Add({7}), Replies{7});
}

TEST(ReplyClaimsTest, TwoRequestsTakeTheTwoRepliesThatBothMayHave) {
    ReplyClaims claims;
    EXPECT_EQ(claims.Add({7, 9}), Replies{});
    EXPECT_EQ(Sorted(claims.Add({9, 7})), (Replies{7, 9}));
}

TEST(ReplyClaimsTest, ARequestThatMayHaveMoreCountsForTheseOnly) {
    ReplyClaims claims;
    EXPECT_EQ(claims.Add({1, 2}), Replies{});
    EXPECT_EQ(claims.Add({1, 3}), Replies{});
    EXPECT_EQ(Sorted(claims.Add({1, 2, 3})), (Replies{1, 2, 3}));
}

TEST(ReplyClaimsTest, WhatOneRequestTakesLeavesOneReplyForAnother) {
    ReplyClaims claims;
    EXPECT_EQ(claims.Add({1, 2}), Replies{});
    EXPECT_EQ(Sorted(claims.Add({2})), (Replies{1, 2}));
}

TEST(ReplyClaimsTest, TooManyPossibleRepliesStayPossible) {
    ReplyClaims claims;
    Replies many(17);
    for (std::size_t i = 0; i < many.size(); ++i) {
        many[i] = i;
    }
    for (std::size_t i = 0; i < many.size(); ++i) {
        EXPECT_EQ(claims.Add(many), Replies{});
    }
}

TEST(ReplyClaimsTest, OldRequestsAreForgotten) {
    ReplyClaims claims;
    EXPECT_EQ(claims.Add({1, 2}), Replies{});
    for (std::uint64_t i = 10; i < 10 + 2 * 64; i += 2) {
        EXPECT_EQ(claims.Add({i, i + 1}), Replies{});
    }
    EXPECT_EQ(claims.Add({2}), Replies{2});
}

}  // namespace
}  // namespace tavrik
