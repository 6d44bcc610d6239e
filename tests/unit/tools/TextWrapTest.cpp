#include "tools/TextWrap.h"

#include <gtest/gtest.h>

namespace tavrikctl {
namespace {

using Lines = std::vector<std::string>;

TEST(TextWrapTest, LinesBreakAtBlanks) {
    EXPECT_EQ(Wrap("one two three", 7), (Lines{"one two", "three"}));
    EXPECT_EQ(Wrap("one two three", 6), (Lines{"one", "two", "three"}));
}

TEST(TextWrapTest, ALongWordIsCut) {
    EXPECT_EQ(Wrap("a bbbbbb c", 4), (Lines{"a", "bbbb", "bb c"}));
    EXPECT_EQ(Wrap("abcde", 2), (Lines{"ab", "cd", "e"}));
}

TEST(TextWrapTest, CharactersStayWhole) {
    EXPECT_EQ(Wrap("\xc3\xa4\xc3\xb6\xe2\x82\xac", 2), (Lines{"\xc3\xa4\xc3\xb6", "\xe2\x82\xac"}));
}

TEST(TextWrapTest, NoTextIsOneLine) {
    EXPECT_EQ(Wrap("", 5), (Lines{""}));
}

}  // namespace
}  // namespace tavrikctl
