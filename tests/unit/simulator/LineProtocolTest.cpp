#include "simulator/LineProtocol.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

namespace simulator {
namespace {

using Lines = std::vector<std::string>;
using std::chrono::milliseconds;

TEST(LineAssemblerTest, ReturnsALineWithItsLastPiece) {
    LineAssembler assembler;
    EXPECT_EQ(assembler.Add("ID"), Lines());
    EXPECT_TRUE(assembler.InsideLine());
    EXPECT_EQ(assembler.Add("?\nMODE?\n\nP"), (Lines{"ID?", "MODE?", ""}));
    EXPECT_TRUE(assembler.InsideLine());
    EXPECT_EQ(assembler.Add("\n"), Lines{"P"});
    EXPECT_FALSE(assembler.InsideLine());
}

TEST(LineAssemblerTest, DropsAnOverlongLine) {
    LineAssembler assembler;
    EXPECT_EQ(assembler.Add(std::string(1024, 'a') + "\n"), Lines{std::string(1024, 'a')});
    EXPECT_EQ(assembler.Add(std::string(1025, 'a')), Lines());
    EXPECT_TRUE(assembler.InsideLine());
    EXPECT_EQ(assembler.Add("b\nc\n"), Lines{"c"});
}

TEST(LineAssemblerTest, ClearDropsAPartialLine) {
    LineAssembler assembler;
    assembler.Add(std::string(1025, 'a'));
    assembler.Clear();
    EXPECT_FALSE(assembler.InsideLine());
    EXPECT_EQ(assembler.Add("b\n"), Lines{"b"});
}

TEST(LineProtocolTest, ParsesAQuery) {
    const auto request = ParseRequest("PARAM[19][0]?");
    ASSERT_TRUE(request);
    EXPECT_EQ(request->form, RequestForm::Query);
    EXPECT_EQ(request->key, "PARAM[19][0]");
    EXPECT_EQ(request->argument, "");
}

TEST(LineProtocolTest, SplitsAnAssignmentAtItsFirstEqualsSign) {
    const auto request = ParseRequest("PDOUT=[3,0]=?");
    ASSERT_TRUE(request);
    EXPECT_EQ(request->form, RequestForm::Assignment);
    EXPECT_EQ(request->key, "PDOUT");
    EXPECT_EQ(request->argument, "[3,0]=?");
}

TEST(LineProtocolTest, ParsesACall) {
    const auto request = ParseRequest("FALLBACK(1)");
    ASSERT_TRUE(request);
    EXPECT_EQ(request->form, RequestForm::Call);
    EXPECT_EQ(request->key, "FALLBACK");
    EXPECT_EQ(request->argument, "1");
    EXPECT_EQ(ParseRequest("OPERATE()")->argument, "");
}

TEST(LineProtocolTest, RejectsOtherLines) {
    for (const char* const line : {"", "ID", "ID?\r", "OPERATE(", ")", "FIN ID", "OPERATE)("}) {
        EXPECT_FALSE(ParseRequest(line)) << line;
    }
}

TEST(LineProtocolTest, ParsesAParameterKey) {
    EXPECT_EQ(ParseParameterKey("PARAM[351][12]"), (ParameterKey{351, 12}));
}

TEST(LineProtocolTest, RejectsOtherParameterKeys) {
    for (const char* const key :
         {"PARAM", "PARAM[]", "PARAM[1]", "PARAM[1][]", "PARAM[01][0]", "PARAM[a][0]",
          "PARAM[1][0]x", "PARAM[-1][0]", "PARAM[1] [0]", "param[1][0]", "PARAM[4294967296][0]"}) {
        EXPECT_FALSE(ParseParameterKey(key)) << key;
    }
}

TEST(LineProtocolTest, ParsesAndFormatsByteLists) {
    EXPECT_EQ(ParseByteList("[]"), Bytes());
    EXPECT_EQ(ParseByteList("[0]"), Bytes{0});
    EXPECT_EQ(ParseByteList("[a,ff,10]"), (Bytes{10, 255, 16}));
    EXPECT_EQ(FormatByteList({}), "[]");
    EXPECT_EQ(FormatByteList({0, 10, 255}), "[0,a,ff]");
}

TEST(LineProtocolTest, RejectsInvalidByteLists) {
    for (const char* const list : {"", "[", "]", "0", "[A]", "[0a]", "[100]", "[1,]", "[,1]", "[,]",
                                   "[1,,2]", "[1] ", "[ 1]", "[0x1]", "[-1]", "[g]", "[1][2]"}) {
        EXPECT_FALSE(ParseByteList(list)) << list;
    }
}

TEST(LineProtocolTest, RejectsNumbersWithSignOrLeadingZeros) {
    EXPECT_EQ(ParseNumber("0"), 0U);
    EXPECT_EQ(ParseNumber("120"), 120U);
    for (const char* const text : {"", "00", "01", "+1", "-1", "1 ", "a"}) {
        EXPECT_FALSE(ParseNumber(text)) << text;
    }
}

constexpr TimePoint kNow{std::chrono::hours(1)};

TEST(AnswerQueueTest, ReturnsATextWhenItIsDue) {
    AnswerQueue queue;
    queue.Push("late\n", kNow + milliseconds(10));
    EXPECT_EQ(queue.Pop(kNow + milliseconds(9)), "");
    EXPECT_EQ(queue.NextDue(), kNow + milliseconds(10));
    EXPECT_EQ(queue.Pop(kNow + milliseconds(10)), "late\n");
    EXPECT_EQ(queue.NextDue(), std::nullopt);
}

TEST(AnswerQueueTest, KeepsTheOrderOfTextsDueAtTheSameTime) {
    AnswerQueue queue;
    queue.Push("first", kNow);
    queue.Push("second", kNow);
    EXPECT_EQ(queue.Pop(kNow), "first");
    EXPECT_EQ(queue.Pop(kNow), "second");
}

TEST(AnswerQueueTest, ReturnsTheEarlierTextFirst) {
    AnswerQueue queue;
    queue.Push("late", kNow + milliseconds(100));
    queue.Push("early", kNow);
    EXPECT_EQ(queue.Pop(kNow + milliseconds(100)), "early");
    EXPECT_EQ(queue.Pop(kNow + milliseconds(100)), "late");
}

TEST(AnswerQueueTest, SplitsALongTextIntoPiecesWithPauses) {
    AnswerQueue queue;
    queue.SetPieceLength(4);
    queue.Push("123456789", kNow);
    EXPECT_EQ(queue.Pop(kNow), "1234");
    EXPECT_EQ(queue.Pop(kNow), "");
    EXPECT_EQ(queue.Pop(kNow + milliseconds(1)), "5678");
    EXPECT_EQ(queue.Pop(kNow + milliseconds(2)), "9");
    EXPECT_EQ(queue.Pop(kNow + milliseconds(9)), "");
}

TEST(AnswerQueueTest, DoesNotInterruptATextInPieces) {
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
