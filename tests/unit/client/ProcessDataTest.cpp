#include "client/ProcessData.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

namespace tavrik {
namespace {

TEST(ProcessDataTest, PositionAndStateAreDecoded) {
    const ProcessData data(323594);  // bytes 0a f0 .. 04
    EXPECT_EQ(data.position, 28.0);
    EXPECT_EQ(data.state, 4);
    EXPECT_EQ(data.FlagText(), "");
    EXPECT_TRUE(data.certain);
}

TEST(ProcessDataTest, APositionMayBeNegative) {
    EXPECT_EQ(ProcessData(0x38ff).position, -2.0);  // bytes ff 38
    EXPECT_EQ(ProcessData(0x0080).position, -327.68);
}

TEST(ProcessDataTest, EachFlagHasItsBitAndText) {
    EXPECT_TRUE(ProcessData(0x100000).fault);
    EXPECT_TRUE(ProcessData(0x200000).tempFault);
    EXPECT_TRUE(ProcessData(0x400000).tempWarn);
    EXPECT_TRUE(ProcessData(0x800000).maintenance);
    EXPECT_EQ(ProcessData(0x400000).FlagText(), "temperature warning");
    EXPECT_EQ(ProcessData(0xf00000).FlagText(),
              "fault, temperature fault, temperature warning, maintenance");
}

TEST(ProcessDataTest, AllZeroIsNotCertain) {
    const ProcessData data(0);
    EXPECT_FALSE(data.certain);
    EXPECT_EQ(data.position, 0.0);
}

TEST(ProcessDataTest, JsonHasEveryValue) {
    nlohmann::ordered_json object{{"gripper", "x"}};
    ProcessData(0xa30000 + 0x0100).AddTo(object);
    EXPECT_EQ(object.dump(),
              R"({"gripper":"x","state":3,"position":0.01,"fault":false,"temperatureFault":true,)"
              R"("temperatureWarning":false,"maintenance":true,"certain":true})");
}

}  // namespace
}  // namespace tavrik
