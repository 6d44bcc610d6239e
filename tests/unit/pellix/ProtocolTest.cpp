#include "pellix/Protocol.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/SlowProtocol.h"

using Bytes = std::vector<std::uint8_t>;
using Numbers = std::vector<std::uint32_t>;

namespace {

/// Generates texts in which brackets, commas, digits and other characters are about equally likely.
class RandomTexts {
public:
    std::string Next() {
        static const std::string alphabet = "[[[]],,,,00112345678999aAbBcdefFFxXgz -+=\t\r";
        std::string text;
        for (std::size_t i = Number(0, 24); i > 0; --i) {
            text += alphabet[Number(0, alphabet.size() - 1)];
        }
        return text;
    }

    std::size_t Number(std::size_t lowest, std::size_t highest) {
        return std::uniform_int_distribution<std::size_t>(lowest, highest)(engine);
    }

private:
    std::mt19937 engine{20261121};
};

}  // namespace

TEST(ProtocolTest, ByteListsAreLowerCaseHexadecimalWithoutLeadingZeros) {
    EXPECT_EQ(pellix::FormatByteList({}), "[]");
    EXPECT_EQ(pellix::FormatByteList({0}), "[0]");
    EXPECT_EQ(pellix::FormatByteList({10, 255}), "[a,ff]");
    EXPECT_EQ(pellix::FormatByteList({0, 1, 15, 16, 171}), "[0,1,f,10,ab]");
}

TEST(ProtocolTest, ByteListsAreFormattedAsByTheSlowReference) {
    RandomTexts random;
    Bytes all;
    for (unsigned byte = 0; byte < 256; ++byte) {
        all.push_back(static_cast<std::uint8_t>(byte));
        EXPECT_EQ(pellix::FormatByteList({static_cast<std::uint8_t>(byte)}),
                  support::SlowFormat({static_cast<std::uint8_t>(byte)}));
    }
    EXPECT_EQ(pellix::FormatByteList(all), support::SlowFormat(all));
    for (int i = 0; i < 200; ++i) {
        Bytes bytes(random.Number(0, 40));
        for (std::uint8_t& byte : bytes) {
            byte = static_cast<std::uint8_t>(random.Number(0, 255));
        }
        ASSERT_EQ(pellix::FormatByteList(bytes), support::SlowFormat(bytes));
    }
}

TEST(ProtocolTest, FormattedListsAreReadBack) {
    RandomTexts random;
    for (int i = 0; i < 200; ++i) {
        Bytes bytes(random.Number(0, 40));
        for (std::uint8_t& byte : bytes) {
            byte = static_cast<std::uint8_t>(random.Number(0, 255));
        }
        ASSERT_EQ(pellix::ReadByteList(pellix::FormatByteList(bytes)), bytes);
    }
}

TEST(ProtocolTest, BytesAreReadInEitherCaseWithZerosAndPrefix) {
    EXPECT_EQ(pellix::ReadByteList("[0a,FF,1]"), (Bytes{10, 255, 1}));
    EXPECT_EQ(pellix::ReadByteList("[fF,0x1F,0X0a,0007]"), (Bytes{255, 31, 10, 7}));
    EXPECT_EQ(pellix::ReadByteList("[ 1,\t2]"), (Bytes{1, 2}));
}

TEST(ProtocolTest, BytesAreCutToTheirLowEightBits) {
    EXPECT_EQ(pellix::ReadByteList("[100,1ff,12345678,fffffffffffffffffffffffffffe1]"),
              (Bytes{0, 255, 0x78, 0xe1}));
}

TEST(ProtocolTest, InvalidElementIsZero) {
    EXPECT_EQ(pellix::ReadByteList("[g,,0x,x1,\"1\",-1]"), (Bytes{0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(pellix::ReadByteList("[,]"), (Bytes{0, 0}));
    EXPECT_EQ(pellix::ReadByteList("[1g,2 3]"), (Bytes{1, 2}));
    EXPECT_EQ(pellix::ReadNumberList("[a,,0x10, 7]"), (Numbers{0, 0, 0, 7}));
}

TEST(ProtocolTest, EmptyListHasNoElements) {
    EXPECT_EQ(pellix::ReadByteList("[]"), Bytes{});
    EXPECT_EQ(pellix::ReadNumberList("[]"), Numbers{});
}

TEST(ProtocolTest, ListEndsAtItsFirstClosingBracket) {
    EXPECT_EQ(pellix::ReadByteList("[1,2]3,4]"), (Bytes{1, 2}));
    EXPECT_EQ(pellix::ReadByteList("[1,[2,3]"), (Bytes{1, 0, 3}));
    EXPECT_EQ(pellix::ReadByteList("[1]\r"), Bytes{1});
}

TEST(ProtocolTest, ListWithoutOpeningBracketIsInvalid) {
    for (const char* text : {"", "1,2]", " [1]", "x[1]", "]", "\"[1]\""}) {
        EXPECT_EQ(pellix::ReadByteList(text), std::nullopt) << text;
        EXPECT_EQ(pellix::ReadNumberList(text), std::nullopt) << text;
    }
}

TEST(ProtocolTest, ListWithoutClosingBracketIsInvalid) {
    for (const char* text : {"[", "[1,2", "[[[["}) {
        EXPECT_EQ(pellix::ReadByteList(text), std::nullopt) << text;
        EXPECT_EQ(pellix::ReadNumberList(text), std::nullopt) << text;
    }
}

TEST(ProtocolTest, RandomTextsAreReadAsByTheSlowReference) {
    RandomTexts random;
    std::size_t lists = 0;
    for (int i = 0; i < 20000; ++i) {
        const std::string text = (i % 2 == 0 ? "[" : "") + random.Next() + (i % 3 == 0 ? "]" : "");
        const auto bytes = support::SlowByteList(text);
        ASSERT_EQ(pellix::ReadByteList(text), bytes) << text;
        ASSERT_EQ(pellix::ReadNumberList(text), support::SlowNumberList(text)) << text;
        lists += bytes ? 1 : 0;
    }
    EXPECT_GT(lists, 2000U);
}

TEST(ProtocolTest, VeryLongListsAreRead) {
    constexpr std::size_t kElements = 200'000;
    std::string text = "[";
    for (std::size_t i = 0; i < kElements; ++i) {
        text += "f,";
    }
    text += "]";
    const auto bytes = pellix::ReadByteList(text);
    ASSERT_TRUE(bytes);
    EXPECT_EQ(bytes->size(), kElements + 1);
    EXPECT_EQ(pellix::ReadByteList("[" + std::string(kElements, '9') + "]"), Bytes{0x99});
    EXPECT_EQ(pellix::ReadByteList(std::string(kElements, '[')), std::nullopt);
}

TEST(ProtocolTest, NumbersAreReadOverTheirWholeRange) {
    EXPECT_EQ(pellix::ReadNumberList("[0,7,31249,4294967295]"), (Numbers{0, 7, 31249, 4294967295}));
    EXPECT_EQ(pellix::ReadUnsigned("4294967295", 10), 4294967295U);
    EXPECT_EQ(pellix::ReadUnsigned("0010", 10), 10U);
    EXPECT_EQ(pellix::ReadUnsigned("12f", 10), 12U);
    EXPECT_EQ(pellix::ReadUnsigned("12f", 16), 0x12FU);
    EXPECT_EQ(pellix::ReadUnsigned("", 10), 0U);
    EXPECT_EQ(pellix::ReadUnsigned("   ", 16), 0U);
}

TEST(ProtocolTest, ModeNumbersAreSignedDecimal) {
    const std::vector<std::pair<std::string, int>> numbers = {
        {"4", 4},
        {"-1", -1},
        {"+3", 3},
        {" 7", 7},
        {"4 ", 4},
        {"4\r", 4},
        {"3abc", 3},
        {"007", 7},
        {"", 0},
        {"abc", 0},
        {"-", 0},
        {"+", 0},
        {"+-3", 0},
        {"-+3", 0},
        {"--3", 0},
        {"0x4", 0},
        {"\t5", 5},
        {"2147483647", 2147483647},
        {"-2147483648", std::numeric_limits<int>::min()}};
    for (const auto& [text, number] : numbers) {
        EXPECT_EQ(pellix::ReadSigned(text), number) << '"' << text << '"';
    }
}

TEST(ProtocolTest, ModeNumbersOutOfRangeAreClamped) {
    EXPECT_EQ(pellix::ReadSigned("2147483648"), std::numeric_limits<int>::max());
    EXPECT_EQ(pellix::ReadSigned("-99999999999999999999"), std::numeric_limits<int>::min());
}

TEST(ProtocolTest, ParameterKeysHaveIndexAndSubindexInDecimal) {
    EXPECT_EQ(pellix::FormatParameterKey({19, 0}), "PARAM[19][0]");
    EXPECT_EQ(pellix::FormatParameterKey({0x60, 3}), "PARAM[96][3]");
    EXPECT_EQ(pellix::FormatParameterKey({4294967295, 4294967295}),
              "PARAM[4294967295][4294967295]");
}

TEST(ProtocolTest, ParameterKeysAreReadBack) {
    for (const unsigned index : {0U, 2U, 19U, 383U, 65535U, 4294967295U}) {
        for (const unsigned subindex : {0U, 1U, 255U, 4294967295U}) {
            const auto address =
                pellix::ReadParameterKey(pellix::FormatParameterKey({index, subindex}));
            ASSERT_TRUE(address);
            EXPECT_EQ(address->index, index);
            EXPECT_EQ(address->subindex, subindex);
        }
    }
}

TEST(ProtocolTest, KeysOfAnotherFormAreNotParameters) {
    for (const char* key :
         {"", "PARAM", "PARAM[", "PARAM[19]", "PARAM[19][", "PARAM[19][0", "PARAM]19[0]",
          "PARAMS[19][0]", "PARAM [19][0]", "param[19][0]", "XPARAM[19][0]", "[19][0]"}) {
        EXPECT_FALSE(pellix::ReadParameterKey(key)) << key;
    }
}

TEST(ProtocolTest, UnusualNumbersInAParameterKeyFollowTheNumberRules) {
    const auto odd = pellix::ReadParameterKey("PARAM[x][]");
    ASSERT_TRUE(odd);
    EXPECT_EQ(odd->index, 0U);
    EXPECT_EQ(odd->subindex, 0U);
    const auto spaced = pellix::ReadParameterKey("PARAM[ 19 ] and [0021]more");
    ASSERT_TRUE(spaced);
    EXPECT_EQ(spaced->index, 19U);
    EXPECT_EQ(spaced->subindex, 21U);
}

TEST(ProtocolTest, ModesHaveTheirNames) {
    const std::vector<std::string> names = {"DL_NONE",       "DL_ESTABCOMM", "DL_STARTUP",
                                            "DL_PREOPERATE", "DL_OPERATE",   "DL_FALLBACK",
                                            "DL_BLMODE",     "DL_POWERFAULT"};
    for (std::size_t mode = 0; mode < names.size(); ++mode) {
        EXPECT_EQ(pellix::ModeName(static_cast<int>(mode)), names[mode]);
    }
    EXPECT_EQ(pellix::ModeName(pellix::kModeOperate), "DL_OPERATE");
}

TEST(ProtocolTest, ModesOutsideTheTableAreUnknown) {
    for (const int mode :
         {8, 9, 255, -1, std::numeric_limits<int>::max(), std::numeric_limits<int>::min()}) {
        EXPECT_EQ(pellix::ModeName(mode), "[unknown]") << mode;
    }
}

TEST(ProtocolTest, ResultsHaveTheirFixedNumbers) {
    EXPECT_EQ(pellix::kResultOk, 0U);
    EXPECT_EQ(pellix::kResultTimeout, 5U);
    EXPECT_EQ(pellix::kResultNoCommand, 12U);
    EXPECT_EQ(pellix::kResultBadPdout, 21U);
}
