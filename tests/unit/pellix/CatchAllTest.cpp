#include "pellix/CatchAll.h"

#include <gtest/gtest.h>

#include <exception>
#include <optional>
#include <stdexcept>

#include "tests/support/Allocations.h"

using pellix::CatchAll;

TEST(CatchAllTest, ActionThatReturnsIsNotAFailure) {
    bool done = false;
    EXPECT_EQ(CatchAll([&] { done = true; }), std::nullopt);
    EXPECT_TRUE(done);
}

TEST(CatchAllTest, ExceptionTextIsReturned) {
    EXPECT_EQ(CatchAll([] { throw std::invalid_argument("stoi"); }), "stoi");
}

TEST(CatchAllTest, ThrownPointerIsDeletedAndItsTextReturned) {
    const std::size_t before = support::LiveBytes();
    // NOLINTNEXTLINE(misc-throw-by-value-catch-by-reference)
    EXPECT_EQ(CatchAll([] { throw new std::exception; }), "std::exception");
    EXPECT_EQ(support::LiveBytes(), before);
}

TEST(CatchAllTest, OtherThrownTypesAreCaught) {
    EXPECT_EQ(CatchAll([] { throw 7; }), "unknown exception");
    EXPECT_EQ(CatchAll([] { throw "text"; }), "unknown exception");
}
