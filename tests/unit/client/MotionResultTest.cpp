#include "client/MotionResult.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

namespace tavrik {
namespace {

using std::chrono::milliseconds;

constexpr int kHoldingAt1250 = 0x06'e2'04;
constexpr int kReferenceNeededAt1000 = 0x01'e8'03;
constexpr int kWarm = 0x40'00'00;

MotionResult Result(MotionEnd end, int excerpt = kHoldingAt1250) {
    return {MotionKind::Grip, end, ProcessData(excerpt), true};
}

TEST(MotionResultTest, TheEndIsNamedWithPositionAndState) {
    EXPECT_EQ(Result(MotionEnd::Gripped).Text(), "gripped a part at 12.50 (state 6)");
    EXPECT_EQ(Result(MotionEnd::Moving).Text(), "still moving, at 12.50 (state 6)");
}

TEST(MotionResultTest, TheObstacleAndTheFlagsAreNamed) {
    MotionResult result = Result(MotionEnd::DidNotMove, kReferenceNeededAt1000 + kWarm);
    result.obstacle = MotionObstacle::NoReference;
    EXPECT_EQ(result.Text(),
              "did not move, at 10.00 (state 1): no reference run yet, temperature warning");
}

TEST(MotionResultTest, AnUnknownObstacleIsSaidToBeUnknown) {
    EXPECT_EQ(Result(MotionEnd::DidNotMove).Text(),
              "did not move, at 12.50 (state 6): reason unknown");
}

TEST(MotionResultTest, DataThatDoNotChangeTellNothing) {
    MotionResult result = Result(MotionEnd::NotReported);
    result.obstacle = MotionObstacle::SameData;
    EXPECT_EQ(result.Text(),
              "no motion reported, last seen at 12.50 (state 6): its process data have not changed "
              "and may be frozen");
    result.kind = MotionKind::Disable;
    EXPECT_TRUE(result.Text().starts_with("did not report that it is off, last seen at 12.50"));
}

TEST(MotionResultTest, ADriveThatStaysOnIsNamed) {
    MotionResult result = Result(MotionEnd::DidNotMove);
    result.kind = MotionKind::Disable;
    result.obstacle = MotionObstacle::Holdfast;
    EXPECT_EQ(result.Text(), "did not switch off at 12.50 (state 6): holdfast may be on");
}

TEST(MotionResultTest, TheTimeOfTheHoldIsInTenths) {
    MotionResult result = Result(MotionEnd::Gripped);
    result.held = milliseconds(12'345);
    EXPECT_EQ(result.Text(), "gripped a part at 12.50 (state 6), held for 12.3 s");
    result.end = MotionEnd::PartLost;
    EXPECT_EQ(result.Text(), "lost the part after 12.3 s, at 12.50 (state 6)");
}

TEST(MotionResultTest, JsonHasEveryValue) {
    nlohmann::ordered_json object;
    MotionResult result = Result(MotionEnd::DidNotMove);
    result.obstacle = MotionObstacle::SameData;  // the last one
    result.AddTo(object);
    EXPECT_EQ(object.dump(),
              R"({"state":6,"position":12.5,"fault":false,"temperatureFault":false,)"
              R"("temperatureWarning":false,"maintenance":false,"certain":true,"changed":true,)"
              R"("result":"did-not-move","reason":"same-data"})");
    result = Result(MotionEnd::NotReported);  // the last one
    result.held = milliseconds(1500);
    result.isOff = true;
    result.AddTo(object);
    EXPECT_EQ(object["result"], "not-reported");
    EXPECT_TRUE(object["reason"].is_null());
    EXPECT_EQ(object["held"], 1.5);
    EXPECT_EQ(object["switchedOff"], true);
}

}  // namespace
}  // namespace tavrik
