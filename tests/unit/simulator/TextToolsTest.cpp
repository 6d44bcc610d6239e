#include "simulator/TextTools.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

namespace simulator {
namespace {

TEST(TextToolsTest, ReplacesEscapes) {
    EXPECT_EQ(Unescape(R"(a\n\r\t\\\x41\xfF)"), "a\n\r\t\\A\xff");
    EXPECT_EQ(Unescape(R"(a\0b)"), std::string("a\0b", 3));
}

TEST(TextToolsTest, RejectsUnknownAndIncompleteEscapes) {
    for (const char* const text : {R"(\q)", R"(\)", R"(\x)", R"(\x4)", R"(\xg0)"}) {
        EXPECT_THROW(Unescape(text), UsageError) << text;
    }
}

TEST(TextToolsTest, EscapesBytesToPlainText) {
    EXPECT_EQ(Escape(std::string("a b\n\r\t\\\0\x01\x7f\xff", 11)), R"(a b\n\r\t\\\0\x01\x7f\xff)");
    EXPECT_EQ(Escape("  a "), R"(\x20 a\x20)");
    EXPECT_EQ(Escape(" "), R"(\x20)");
    EXPECT_EQ(Unescape(Escape(std::string("\0001", 2))), std::string("\0001", 2));
}

TEST(TextToolsTest, RejectsInvalidNumbers) {
    EXPECT_EQ(ParseUnsigned("12", 12), 12U);
    for (const char* const text : {"", "13", "1x", " 1", "-1", "4294967296"}) {
        EXPECT_THROW(ParseUnsigned(text, 12), UsageError) << text;
    }
    EXPECT_EQ(ParseDecimal("12.5"), 12.5);
    for (const char* const text : {"", "x", "1,5", "nan", "inf"}) {
        EXPECT_THROW(ParseDecimal(text), UsageError) << text;
    }
    EXPECT_EQ(ParseHexadecimalByte("fF"), 255);
    EXPECT_EQ(ParseHexadecimalByte("0a"), 10);
    for (const char* const text : {"", "100", "g"}) {
        EXPECT_THROW(ParseHexadecimalByte(text), UsageError) << text;
    }
}

TEST(TextToolsTest, ParsesChoices) {
    EXPECT_TRUE(ParseOnOff("on"));
    EXPECT_FALSE(ParseOnOff("off"));
    EXPECT_THROW(ParseOnOff("yes"), UsageError);
    EXPECT_FALSE(ParseChoice("data", "fin", "data"));
    EXPECT_THROW(ParseChoice("", "fin", "data"), UsageError);
}

TEST(TextToolsTest, SplitsAtEverySeparator) {
    EXPECT_EQ(Split("", ','), std::vector<std::string>());
    EXPECT_EQ(Split("a", ','), std::vector<std::string>{"a"});
    EXPECT_EQ(Split("a,,b", ','), (std::vector<std::string>{"a", "", "b"}));
}

TEST(CommandWordsTest, TakesWordsInOrder) {
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

TEST(CommandWordsTest, RejectsUnexpectedWords) {
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
