#include "simulator/GripperModel.h"

#include <gtest/gtest.h>

namespace simulator {
namespace {

TEST(GripperModelTest, EveryModelHasItsDeviceId) {
    EXPECT_EQ(FindGripperModel("TLM")->deviceId, 10U);
    EXPECT_EQ(FindGripperModel("HVA")->deviceId, 20U);
    EXPECT_EQ(FindGripperModel("MZD-S")->deviceId, 40U);
    EXPECT_EQ(FindGripperModel("MZD-L")->deviceId, 50U);
}

TEST(GripperModelTest, OtherNamesAreNoModels) {
    EXPECT_EQ(FindGripperModel("hva"), nullptr);
    EXPECT_EQ(FindGripperModel("MZD"), nullptr);
    EXPECT_EQ(FindGripperModel(""), nullptr);
}

}  // namespace
}  // namespace simulator
