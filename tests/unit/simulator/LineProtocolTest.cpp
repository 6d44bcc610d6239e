#include "simulator/LineProtocol.h"

#include <gtest/gtest.h>

namespace simulator {
namespace {

TEST(LineProtocolTest, AQueryIsAKeyAndAQuestionMark) {
    const auto request = ParseRequest("PARAM[19][0]?");
    ASSERT_TRUE(request);
    EXPECT_EQ(request->form, RequestForm::Query);
    EXPECT_EQ(request->key, "PARAM[19][0]");
    EXPECT_EQ(request->argument, "");
}

TEST(LineProtocolTest, AnAssignmentIsCutAtItsFirstEqualsSign) {
    const auto request = ParseRequest("PDOUT=[3,0]=?");
    ASSERT_TRUE(request);
    EXPECT_EQ(request->form, RequestForm::Assignment);
    EXPECT_EQ(request->key, "PDOUT");
    EXPECT_EQ(request->argument, "[3,0]=?");
}

TEST(LineProtocolTest, ACallHasItsArgumentInParentheses) {
    const auto request = ParseRequest("FALLBACK(1)");
    ASSERT_TRUE(request);
    EXPECT_EQ(request->form, RequestForm::Call);
    EXPECT_EQ(request->key, "FALLBACK");
    EXPECT_EQ(request->argument, "1");
    EXPECT_EQ(ParseRequest("OPERATE()")->argument, "");
}

TEST(LineProtocolTest, ALineOfNoFormIsNoRequest) {
    for (const char* const line : {"", "ID", "ID?\r", "OPERATE(", ")", "FIN ID", "OPERATE)("}) {
        EXPECT_FALSE(ParseRequest(line)) << line;
    }
}

TEST(LineProtocolTest, AParameterKeyHasTwoDecimalNumbers) {
    EXPECT_EQ(ParseParameterKey("PARAM[351][12]"), (ParameterKey{351, 12}));
}

TEST(LineProtocolTest, AnythingElseIsNoParameterKey) {
    for (const char* const key :
         {"PARAM", "PARAM[]", "PARAM[1]", "PARAM[1][]", "PARAM[01][0]", "PARAM[a][0]",
          "PARAM[1][0]x", "PARAM[-1][0]", "PARAM[1] [0]", "param[1][0]", "PARAM[4294967296][0]"}) {
        EXPECT_FALSE(ParseParameterKey(key)) << key;
    }
}

TEST(LineProtocolTest, AByteListIsReadAsItIsWritten) {
    EXPECT_EQ(ParseByteList("[]"), Bytes());
    EXPECT_EQ(ParseByteList("[0]"), Bytes{0});
    EXPECT_EQ(ParseByteList("[a,ff,10]"), (Bytes{10, 255, 16}));
    EXPECT_EQ(FormatByteList({}), "[]");
    EXPECT_EQ(FormatByteList({0, 10, 255}), "[0,a,ff]");
}

TEST(LineProtocolTest, AByteListThatNoEncoderShouldWriteIsRefused) {
    for (const char* const list : {"", "[", "]", "0", "[A]", "[0a]", "[100]", "[1,]", "[,1]", "[,]",
                                   "[1,,2]", "[1] ", "[ 1]", "[0x1]", "[-1]", "[g]", "[1][2]"}) {
        EXPECT_FALSE(ParseByteList(list)) << list;
    }
}

TEST(LineProtocolTest, ANumberHasNoSignAndNoLeadingZeros) {
    EXPECT_EQ(ParseNumber("0"), 0U);
    EXPECT_EQ(ParseNumber("120"), 120U);
    for (const char* const text : {"", "00", "01", "+1", "-1", "1 ", "a"}) {
        EXPECT_FALSE(ParseNumber(text)) << text;
    }
}

}  // namespace
}  // namespace simulator
