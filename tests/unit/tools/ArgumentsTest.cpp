#include "tools/Arguments.h"

#include <gtest/gtest.h>

#include "tests/unit/tools/ExpectFailure.h"

namespace tavrikctl {
namespace {

TEST(ArgumentsTest, IntegersAreWholeNumbersOf32Bits) {
    EXPECT_EQ(ParseInteger("-2147483648"), -2147483647 - 1);
    EXPECT_EQ(ParseInteger("255"), 255);
    for (const char* const wrong : {"", "1.0", "1 ", " 1", "0x10", "2147483648", "one"}) {
        EXPECT_FAILURE(ParseInteger(wrong), Usage,
                       ("'" + std::string(wrong) + "' is no integer").c_str());
    }
}

TEST(ArgumentsTest, RealNumbersHaveAPointNotAComma) {
    EXPECT_EQ(ParseReal("-12.5"), -12.5);
    EXPECT_EQ(ParseReal("5"), 5.0);
    EXPECT_FAILURE(ParseReal("12,5"), Usage, "'12,5' is no number");
    for (const char* const wrong : {"", "nan", "inf", "-inf", "1e999"}) {
        EXPECT_FAILURE(ParseReal(wrong), Usage,
                       ("'" + std::string(wrong) + "' is no number").c_str());
    }
}

TEST(ArgumentsTest, ABooleanHasSeveralNames) {
    for (const char* const text : {"on", "true", "yes", "1"}) {
        EXPECT_TRUE(ParseBoolean(text)) << text;
    }
    for (const char* const text : {"off", "false", "no", "0"}) {
        EXPECT_FALSE(ParseBoolean(text)) << text;
    }
    EXPECT_FAILURE(ParseBoolean("2"), Usage, "'2' is neither on nor off");
}

TEST(ArgumentsTest, TheLetterOfAParameterDecidesItsType) {
    EXPECT_EQ(xmlrpc_c::value_int(ParseArgument('i', "7")).cvalue(), 7);
    EXPECT_EQ(xmlrpc_c::value_double(ParseArgument('d', "7")).cvalue(), 7.0);
    EXPECT_TRUE(xmlrpc_c::value_boolean(ParseArgument('b', "on")).cvalue());
    EXPECT_EQ(xmlrpc_c::value_string(ParseArgument('g', "7")).cvalue(), "7");
    EXPECT_EQ(xmlrpc_c::value_string(ParseArgument('s', "on")).cvalue(), "on");
    EXPECT_EQ(xmlrpc_c::value_array(ParseArgument('a', "[7, \"x\"]")).size(), 2U);
}

TEST(ArgumentsTest, TextIsUtf8) {
    EXPECT_FAILURE(ParseArgument('g', "a\xff"), Usage, "'a?' is no UTF-8");
}

TEST(ArgumentsTest, AnArrayIsJson) {
    EXPECT_FAILURE(ParseArgument('a', "7"), Usage, "'7' is no array in JSON");
    EXPECT_FAILURE(ParseArgument('a', "[7"), Usage, "'[7' is no array in JSON");
    EXPECT_FAILURE(ParseArgument('a', "[3000000000]"), Usage,
                   "'[3000000000]' has an integer of more than 32 bits");
}

TEST(ArgumentsTest, WhatIsWrongIsShownWithoutControlCharacters) {
    EXPECT_FAILURE(ParseInteger("\x1b[2J"), Usage, "'?[2J' is no integer");
}

}  // namespace
}  // namespace tavrikctl
