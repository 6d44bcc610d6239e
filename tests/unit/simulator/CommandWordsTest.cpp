#include "simulator/CommandWords.h"

#include <gtest/gtest.h>

#include <optional>

#include "simulator/UsageError.h"

namespace simulator {
namespace {

TEST(CommandWordsTest, WordsAreTakenOneAfterTheOther) {
    CommandWords words("  plug \t 0  ");
    EXPECT_EQ(words.Take(), "plug");
    EXPECT_EQ(words.TakeIfAny(), "0");
    EXPECT_EQ(words.TakeIfAny(), std::nullopt);
    EXPECT_THROW(words.Take(), UsageError);
    EXPECT_NO_THROW(words.End());
}

TEST(CommandWordsTest, TheRestKeepsItsBlanks) {
    CommandWords words("send 0 a  b ");
    words.Take();
    words.Take();
    EXPECT_EQ(words.TakeRest(), "a  b ");
    EXPECT_NO_THROW(words.End());
}

TEST(CommandWordsTest, WhatIsLeftOverIsNotUnderstood) {
    CommandWords words("plug 0");
    words.Take();
    EXPECT_THROW(words.End(), UsageError);
}

TEST(CommandWordsTest, ACarriageReturnIsABlank) {
    CommandWords words("plug 0\r");
    words.Take();
    EXPECT_EQ(words.Take(), "0");
    EXPECT_NO_THROW(words.End());
}

}  // namespace
}  // namespace simulator
