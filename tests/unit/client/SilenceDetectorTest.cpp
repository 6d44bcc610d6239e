#include "client/SilenceDetector.h"

#include <gtest/gtest.h>

namespace tavrik {
namespace {

const ProcessData kSome(0x040001);
const ProcessData kOther(0x040002);

SilenceDetector::TimePoint At(int seconds) {
    return SilenceDetector::TimePoint(std::chrono::seconds(seconds));
}

TEST(SilenceDetectorTest, NothingIsFrozenWhileTheMasterAnswers) {
    SilenceDetector detector;
    detector.AddData(kSome, At(1));
    EXPECT_FALSE(detector.IsFrozen());
    detector.AddProbe(true, At(2));
    EXPECT_FALSE(detector.IsFrozen());
    EXPECT_EQ(detector.SilentSince(), std::nullopt);
}

TEST(SilenceDetectorTest, SilenceStartsWithTheFirstProbeWithoutAnswer) {
    SilenceDetector detector;
    detector.AddData(kSome, At(1));
    detector.AddProbe(false, At(2));
    detector.AddProbe(false, At(4));
    EXPECT_EQ(detector.SilentSince(), At(2));
    EXPECT_TRUE(detector.IsFrozen());
    detector.AddProbe(true, At(6));
    EXPECT_FALSE(detector.IsFrozen());
    detector.AddProbe(false, At(7));
    EXPECT_EQ(detector.SilentSince(), At(7));
}

TEST(SilenceDetectorTest, TheFirstDataIsNotAChange) {
    SilenceDetector detector;
    detector.AddProbe(false, At(1));
    detector.AddData(kSome, At(2));
    EXPECT_TRUE(detector.IsFrozen());
}

TEST(SilenceDetectorTest, ChangingDataIsNotFrozen) {
    SilenceDetector detector;
    detector.AddData(kSome, At(1));
    detector.AddProbe(false, At(2));
    detector.AddData(kOther, At(3));
    detector.AddData(kOther, At(4));
    EXPECT_FALSE(detector.IsFrozen());
}

TEST(SilenceDetectorTest, AnEarlierChangeDoesNotCount) {
    SilenceDetector detector;
    detector.AddData(kSome, At(1));
    detector.AddData(kOther, At(2));
    detector.AddProbe(false, At(3));
    EXPECT_TRUE(detector.IsFrozen());
}

TEST(SilenceDetectorTest, WithoutDataNothingIsFrozen) {
    SilenceDetector detector;
    detector.AddData(kSome, At(1));
    detector.AddProbe(false, At(2));
    detector.AddData(std::nullopt, At(3));
    EXPECT_FALSE(detector.IsFrozen());
}

}  // namespace
}  // namespace tavrik
