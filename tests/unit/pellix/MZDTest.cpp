#include "pellix/MZD.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "pellix/Protocol.h"
#include "tests/unit/pellix/GripperOnLink.h"

using pellix::MZD;

class MZDTest : public GripperOnLink {};

TEST_F(MZDTest, HoldfastSetsOrClearsOnlyItsBit) {
    const std::vector<std::pair<Bytes, std::string>> on = {
        {{0x00, 0x03}, "[10,3]"}, {{0xEF, 0x00}, "[ff,0]"}, {{0x10, 0x00}, "[10,0]"}};
    for (const auto& [pdout, sent] : on) {
        StorePdout(pdout);
        EXPECT_EQ(MZD::Holdfast(*link, true), pellix::kResultOk);
        EXPECT_EQ(TakeRequests(), Lines{"PDOUT=" + sent});
    }
    const std::vector<std::pair<Bytes, std::string>> off = {{{0xFF, 0x03}, "[ef,3]"},
                                                            {{0x00, 0x00}, "[0,0]"}};
    for (const auto& [pdout, sent] : off) {
        StorePdout(pdout);
        EXPECT_EQ(MZD::Holdfast(*link, false), pellix::kResultOk);
        EXPECT_EQ(TakeRequests(), Lines{"PDOUT=" + sent});
    }
}

TEST_F(MZDTest, PresetIsThreeBitsWideAndFillsTheUpperBits) {
    for (unsigned preset = 0; preset < 256; preset = preset < 20 ? preset + 1 : preset * 2 + 1) {
        for (const std::uint8_t stored : Bytes{0x00, 0x1F, 0xE0, 0xFF}) {
            StorePdout({stored, 0x07});
            EXPECT_EQ(MZD::SetLEDPreset(*link, static_cast<std::uint8_t>(preset)),
                      pellix::kResultOk);
            const auto expected = static_cast<std::uint8_t>(stored % 32 + preset % 8 * 32);
            EXPECT_EQ(TakeRequests(), Lines{"PDOUT=" + pellix::FormatByteList({expected, 0x07})});
        }
    }
}

TEST_F(MZDTest, StoredOutputOfAnotherLengthIsRejectedAndNothingSent) {
    for (const Bytes& pdout : {Bytes{}, Bytes{1}, Bytes{1, 2, 3}}) {
        StorePdout(pdout);
        EXPECT_EQ(MZD::Holdfast(*link, true), pellix::kResultBadPdout);
        EXPECT_EQ(MZD::SetLEDPreset(*link, 1), pellix::kResultBadPdout);
    }
    EXPECT_TRUE(TakeRequests().empty());
}

TEST_F(MZDTest, HoldfastStatusIsABitOfTheStatusByte) {
    for (int byte = 0; byte < 256; ++byte) {
        StorePdin({0xFF, 0xFF, static_cast<std::uint8_t>(byte), 0xFF});
        ASSERT_EQ(MZD::GetHoldfastStatus(*link), byte / 4 % 2 == 1);
    }
    StorePdin({0xFF, 0xFF, 0xFF});
    EXPECT_FALSE(MZD::GetHoldfastStatus(*link));
}

TEST_F(MZDTest, SettingsOfAnLedAreReadAsOneByteEach) {
    master.SetValue("PARAM[130][1]", "[1]");
    master.SetValue("PARAM[130][2]", "[a]");
    master.SetValue("PARAM[130][3]", "[ff]");
    EXPECT_EQ(MZD::GetLEDAnimation(*link, 2), 1);
    EXPECT_EQ(MZD::GetLEDColor(*link, 2), 10);
    EXPECT_EQ(MZD::GetLEDSpeed(*link, 2), 255);
    EXPECT_EQ(TakeRequests(), (Lines{"PARAM[130][1]?", "PARAM[130][2]?", "PARAM[130][3]?"}));
}

TEST_F(MZDTest, LedSettingOfAnotherLengthIsZero) {
    for (const char* value : {"[]", "[1,2]"}) {
        for (const char* key : {"PARAM[128][1]", "PARAM[128][2]", "PARAM[128][3]"}) {
            master.SetValue(key, value);
        }
        EXPECT_EQ(MZD::GetLEDAnimation(*link, 0), 0) << value;
        EXPECT_EQ(MZD::GetLEDColor(*link, 0), 0) << value;
        EXPECT_EQ(MZD::GetLEDSpeed(*link, 0), 0) << value;
    }
}

TEST_F(MZDTest, SettingsOfAnLedAreSentAsOneByteEach) {
    EXPECT_EQ(MZD::SetLEDAnimation(*link, 0, 3), pellix::kResultOk);
    EXPECT_EQ(MZD::SetLEDColor(*link, 1, 10), pellix::kResultOk);
    EXPECT_EQ(MZD::SetLEDSpeed(*link, 7, 255), pellix::kResultOk);
    EXPECT_EQ(TakeRequests(),
              (Lines{"PARAM[128][1]=[3]", "PARAM[129][2]=[a]", "PARAM[135][3]=[ff]"}));
    master.SetAnswers("PARAM[128][2]=[1]", {"ERR PARAM[128][2] 9\n"});
    EXPECT_EQ(MZD::SetLEDColor(*link, 0, 1), 9U);
}

TEST_F(MZDTest, NumberOfTheLedIsAddedUnchecked) {
    MZD::GetLEDSpeed(*link, 255);
    MZD::SetLEDColor(*link, 128, 1);
    EXPECT_EQ(TakeRequests(), (Lines{"PARAM[383][3]?", "PARAM[256][2]=[1]"}));
}
