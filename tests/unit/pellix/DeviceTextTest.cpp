#include "pellix/DeviceText.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <random>
#include <string>
#include <utility>
#include <vector>

using Bytes = std::vector<std::uint8_t>;

namespace {

std::string Safe(const std::string& raw) {
    return pellix::ToSafeText(Bytes(raw.begin(), raw.end()));
}

/// @return `code` encoded by the rules of UTF-8, even if UTF-8 does not allow it
std::string Encode(std::uint32_t code) {
    const auto tail = [code](unsigned shift) {
        return static_cast<char>(0x80 | (code >> shift & 0x3F));
    };
    if (code < 0x80) {
        return {static_cast<char>(code)};
    }
    if (code < 0x800) {
        return {static_cast<char>(0xC0 | code >> 6), tail(0)};
    }
    if (code < 0x10000) {
        return {static_cast<char>(0xE0 | code >> 12), tail(6), tail(0)};
    }
    return {static_cast<char>(0xF0 | code >> 18), tail(12), tail(6), tail(0)};
}

bool IsSurrogate(std::uint32_t code) {
    return code >= 0xD800 && code < 0xE000;
}

/// @return the expected replacement of the character `code`
std::string Expected(std::uint32_t code) {
    if (IsSurrogate(code)) {
        return "???";  // not UTF-8: one for each byte
    }
    const bool unharmed = code < 0x20 ? code == '\t' || code == '\n'
                                      : code < 0x10000 && code != 0xFFFE && code != 0xFFFF;
    return unharmed ? Encode(code) : "?";
}

}  // namespace

TEST(DeviceTextTest, PlainTextIsUnchanged) {
    EXPECT_EQ(Safe(""), "");
    EXPECT_EQ(Safe("MZD S 2.0 (\"left\") <&>"), "MZD S 2.0 (\"left\") <&>");
    EXPECT_EQ(Safe("  padded  "), "  padded  ");
}

TEST(DeviceTextTest, TrailingZeroBytesAreCut) {
    EXPECT_EQ(Safe(std::string("HVA\0\0\0", 6)), "HVA");
    EXPECT_EQ(Safe(std::string("\0\0", 2)), "");
    EXPECT_EQ(Safe(std::string("HVA\0 \0", 6)), "HVA? ");
}

TEST(DeviceTextTest, ControlBytesExceptTabAndLineFeedAreReplaced) {
    EXPECT_EQ(Safe("a\tb\nc\rd\x01"
                   "e\x1F"
                   "f"),
              "a\tb\nc?d?e?f");
}

TEST(DeviceTextTest, EveryCharacterIsKeptOrReplacedByItsKind) {
    constexpr std::uint32_t kEndOfBasicPlane = 0x10000;
    std::size_t kept = 0;
    // Above the basic plane a selection is enough.
    for (std::uint32_t code = 0; code <= 0x10FFFF; code += code < kEndOfBasicPlane ? 1 : 89) {
        const std::string text = "a" + Encode(code) + "z";
        const std::string safe = Safe(text);
        ASSERT_EQ(safe, "a" + Expected(code) + "z") << std::hex << code;
        kept += safe == text ? 1 : 0;
    }
    // All except surrogates, 30 control characters and the two noncharacters.
    EXPECT_EQ(kept, kEndOfBasicPlane - 0x800U - 30U - 2U);
}

TEST(DeviceTextTest, EachInvalidUtf8ByteBecomesOneQuestionMark) {
    EXPECT_EQ(Safe("\x80"), "?");
    EXPECT_EQ(Safe("a\xFF\xFE"
                   "b"),
              "a??b");
    EXPECT_EQ(Safe("\xC3"), "?");       // cut after one byte
    EXPECT_EQ(Safe("\xE2\x82"), "??");  // cut after two
    EXPECT_EQ(Safe("\xE2\x82"
                   "A"),
              "??A");                        // and more text
    EXPECT_EQ(Safe("\xC0\xAF"), "??");       // overlong
    EXPECT_EQ(Safe("\xE0\x80\xAF"), "???");  // overlong
    EXPECT_EQ(Safe("\xF0\x80\x80\xAF"), "????");
    EXPECT_EQ(Safe("\xED\xA0\x80"), "???");       // surrogate
    EXPECT_EQ(Safe("\xF4\x90\x80\x80"), "????");  // beyond the last character
    EXPECT_EQ(Safe("\xF8\x88\x80\x80\x80"), "?????");
    EXPECT_EQ(Safe("\xC3\xC3\xA4"), "?\xC3\xA4");  // the second one is whole
}

TEST(DeviceTextTest, EachCharacterAboveTheBasicPlaneBecomesOneQuestionMark) {
    EXPECT_EQ(Safe("a\xF0\x9F\x98\x80z"), "a?z");
}

TEST(DeviceTextTest, RandomBytesGiveOnlySafeCharacters) {
    std::mt19937 engine(20261121);
    const std::array<std::uint8_t, 16> likely = {0x00, 0x0A, 0x41, 0x7F, 0x80, 0x9F, 0xA0, 0xBF,
                                                 0xC2, 0xE0, 0xED, 0xEF, 0xF0, 0xF4, 0xBE, 0xFF};
    for (int i = 0; i < 20000; ++i) {
        Bytes bytes(engine() % 12);
        for (std::uint8_t& byte : bytes) {
            byte = i % 2 == 0 ? likely[engine() % likely.size()]
                              : static_cast<std::uint8_t>(engine() % 256);
        }
        const std::string safe = pellix::ToSafeText(bytes);
        ASSERT_EQ(Safe(safe), safe);  // no unsafe character is left
        ASSERT_LE(safe.size(), bytes.size());
    }
}
