#include "simulator/TextTools.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "simulator/UsageError.h"

namespace simulator {
namespace {

TEST(TextToolsTest, EscapesStandForTheirBytes) {
    EXPECT_EQ(Unescape(R"(a\n\r\t\\\x41\xfF)"), "a\n\r\t\\A\xff");
    EXPECT_EQ(Unescape(R"(a\0b)"), std::string("a\0b", 3));
}

TEST(TextToolsTest, UnknownOrUnfinishedEscapesAreRefused) {
    for (const char* const text : {R"(\q)", R"(\)", R"(\x)", R"(\x4)", R"(\xg0)"}) {
        EXPECT_THROW(Unescape(text), UsageError) << text;
    }
}

TEST(TextToolsTest, BytesAreEscapedToPlainText) {
    EXPECT_EQ(Escape(std::string("a b\n\r\t\\\0\x01\x7f\xff", 11)), R"(a b\n\r\t\\\0\x01\x7f\xff)");
    EXPECT_EQ(Escape("  a "), R"(\x20 a\x20)");
    EXPECT_EQ(Escape(" "), R"(\x20)");
    EXPECT_EQ(Unescape(Escape(std::string("\0001", 2))), std::string("\0001", 2));
}

TEST(TextToolsTest, NumbersAreReadWholeOrNotAtAll) {
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

TEST(TextToolsTest, SwitchesHaveTwoPositions) {
    EXPECT_TRUE(ParseOnOff("on"));
    EXPECT_FALSE(ParseOnOff("off"));
    EXPECT_THROW(ParseOnOff("yes"), UsageError);
    EXPECT_EQ(ParseQueryEnd("fin"), QueryEnd::Finish);
    EXPECT_EQ(ParseQueryEnd("data"), QueryEnd::DataLine);
    EXPECT_THROW(ParseQueryEnd(""), UsageError);
}

TEST(TextToolsTest, ATextIsCutAtEverySeparator) {
    EXPECT_EQ(Split("", ','), std::vector<std::string>());
    EXPECT_EQ(Split("a", ','), std::vector<std::string>{"a"});
    EXPECT_EQ(Split("a,,b", ','), (std::vector<std::string>{"a", "", "b"}));
}

}  // namespace
}  // namespace simulator
