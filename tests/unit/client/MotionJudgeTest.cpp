#include "client/MotionJudge.h"

#include <gtest/gtest.h>

#include <cmath>

namespace tavrik {
namespace {

using std::chrono::milliseconds;

class RestDetectorTest : public testing::Test {
protected:
    bool IsAtRest(double position, int state, int ms) {
        return detector.IsAtRest(position, state, RestDetector::TimePoint(milliseconds(ms)));
    }

    /// Looks every 100 ms, from `first` on and before `last`.
    void KeepLooking(double position, int state, int first, int last) {
        for (int ms = first; ms < last; ms += 100) {
            EXPECT_FALSE(IsAtRest(position, state, ms)) << ms;
        }
    }

private:
    RestDetector detector;
};

TEST_F(RestDetectorTest, HalfASecondWithoutChangeIsRest) {
    KeepLooking(5, 4, 1000, 1500);
    EXPECT_FALSE(IsAtRest(5, 4, 1499));
    EXPECT_TRUE(IsAtRest(5, 4, 1500));
}

TEST_F(RestDetectorTest, AMotionRestartsTheWait) {
    KeepLooking(5, 4, 1000, 1400);
    KeepLooking(5.03, 4, 1400, 1900);
    EXPECT_FALSE(IsAtRest(5.03, 4, 1899));
    EXPECT_TRUE(IsAtRest(5.03, 4, 1900));
}

TEST_F(RestDetectorTest, AChangeOfStateRestartsTheWait) {
    KeepLooking(5, 4, 1000, 1500);
    KeepLooking(5, 5, 1500, 2000);
    EXPECT_TRUE(IsAtRest(5, 5, 2000));
}

TEST_F(RestDetectorTest, TremorIsNotMotionButSlowMotionIs) {
    KeepLooking(5, 4, 1000, 1300);
    KeepLooking(5.02, 4, 1300, 1500);
    EXPECT_TRUE(IsAtRest(4.98, 4, 1500));
    EXPECT_FALSE(IsAtRest(5.04, 4, 1600));
}

TEST_F(RestDetectorTest, ASamplingGapRestartsTheWait) {
    KeepLooking(5, 4, 1000, 1400);
    KeepLooking(5, 4, 1501, 2001);
    EXPECT_TRUE(IsAtRest(5, 4, 2001));
}

using State = GripperState;
using Progress = MotionJudge::Progress;

constexpr unsigned kFault = 1;
constexpr unsigned kTemperatureWarning = 4;

ProcessData At(double position, State state, unsigned flags = 0) {
    const auto raw = static_cast<int>(std::lround(position * 100));
    const auto last = static_cast<int>(flags << 4U) + static_cast<int>(state);
    return ProcessData(raw / 256 + 256 * (raw % 256) + 65536 * last);
}

class MotionJudgeTest : public testing::Test {
protected:
    static constexpr MotionJudge::TimePoint kStart{};

    static MotionJudge Judge(MotionKind kind, const ProcessData& before) {
        return {kind, before, kStart};
    }

    static Progress Add(MotionJudge& judge, const ProcessData& data, int ms) {
        return judge.Add(data, kStart + milliseconds(ms));
    }

    /// Adds the same data every 100 ms for half a second. @return the last progress
    static Progress Stay(MotionJudge& judge, const ProcessData& data, int first) {
        for (int ms = first; ms < first + 500; ms += 100) {
            EXPECT_EQ(Add(judge, data, ms), Progress::Going) << ms;
        }
        return Add(judge, data, first + 500);
    }

    static void ExpectReported(MotionJudge judge, const ProcessData& data, MotionEnd end) {
        EXPECT_EQ(Add(judge, data, 100), Progress::Reported);
        EXPECT_EQ(judge.End(), end);
        EXPECT_TRUE(judge.HasChanged());
    }

    static void ExpectStill(MotionJudge judge, const ProcessData& data, MotionEnd end) {
        EXPECT_EQ(Stay(judge, data, 100), Progress::AtRest);
        EXPECT_EQ(judge.End(), end);
    }
};

TEST_F(MotionJudgeTest, TheStateAtTheEndOfEachMotionIsReportedAtOnce) {
    ExpectReported(Judge(MotionKind::Grip, At(28, State::Released)), At(12.5, State::Holding),
                   MotionEnd::Gripped);
    ExpectReported(Judge(MotionKind::Grip, At(28, State::Released)), At(2, State::NoPart),
                   MotionEnd::NoPart);
    ExpectReported(Judge(MotionKind::Release, At(2, State::NoPart)), At(28, State::Released),
                   MotionEnd::Released);
    ExpectReported(Judge(MotionKind::Reference, At(10, State::NeedsReference)),
                   At(30, State::Referenced), MotionEnd::Referenced);
    ExpectReported(Judge(MotionKind::Disable, At(12.5, State::Holding)), At(12.5, State::Off),
                   MotionEnd::SwitchedOff);
    ExpectReported(Judge(MotionKind::Disable, At(12.5, State::Referencing)),
                   At(12.5, State::NeedsReference), MotionEnd::SwitchedOff);
}

TEST_F(MotionJudgeTest, WhatIsReadRightAfterTheRequestMayBeOld) {
    MotionJudge judge = Judge(MotionKind::Grip, At(10, State::Gripping));
    EXPECT_EQ(Add(judge, At(2, State::NoPart), 24), Progress::Going);
    EXPECT_EQ(Add(judge, At(2, State::NoPart), 25), Progress::Reported);
}

TEST_F(MotionJudgeTest, TheStateBeforeTheRequestIsNoEnd) {
    ExpectStill(Judge(MotionKind::Grip, At(12.5, State::Holding)), At(12.5, State::Holding),
                MotionEnd::DidNotMove);
    ExpectStill(Judge(MotionKind::Reference, At(30, State::Referenced)), At(30, State::Referenced),
                MotionEnd::DidNotMove);
    ExpectStill(Judge(MotionKind::Release, At(28, State::Released)), At(28, State::Released),
                MotionEnd::DidNotMove);
}

TEST_F(MotionJudgeTest, TheSameStateElsewhereIsAnEndOnlyAtRest) {
    ExpectStill(Judge(MotionKind::Release, At(28, State::Released)), At(25, State::Released),
                MotionEnd::Released);
}

TEST_F(MotionJudgeTest, TheEndOfThePreviousMotionMaySettle) {
    MotionJudge judge = Judge(MotionKind::Release, At(27.9, State::Released));
    EXPECT_EQ(Add(judge, At(28, State::Released), 50), Progress::Going);
    EXPECT_EQ(Add(judge, At(28, State::Releasing), 100), Progress::Going);
    EXPECT_EQ(Add(judge, At(30, State::Released), 200), Progress::Reported);
    EXPECT_EQ(judge.End(), MotionEnd::Released);
}

TEST_F(MotionJudgeTest, TheSameStateAfterAMotionIsAnEnd) {
    MotionJudge judge = Judge(MotionKind::Grip, At(12.5, State::Holding));
    EXPECT_EQ(Add(judge, At(12.5, State::Gripping), 50), Progress::Going);
    EXPECT_EQ(Add(judge, At(12.5, State::Holding), 100), Progress::Reported);
    EXPECT_EQ(judge.End(), MotionEnd::Gripped);
    EXPECT_FALSE(judge.HasChanged());
}

TEST_F(MotionJudgeTest, AnotherStateIsNoEndBeforeTheMotionIsReported) {
    MotionJudge judge = Judge(MotionKind::Release, At(10, State::Gripping));
    EXPECT_EQ(Add(judge, At(2, State::NoPart), 50), Progress::Going);
    EXPECT_EQ(Add(judge, At(3, State::Releasing), 100), Progress::Going);
    EXPECT_EQ(Add(judge, At(28, State::Released), 200), Progress::Reported);
}

TEST_F(MotionJudgeTest, AnotherStateAfterTheMotionIsAStop) {
    MotionJudge judge = Judge(MotionKind::Reference, At(20, State::NeedsReference));
    EXPECT_EQ(Add(judge, At(15, State::Referencing), 50), Progress::Going);
    EXPECT_EQ(Add(judge, At(12.5, State::NeedsReference), 100), Progress::Reported);
    EXPECT_EQ(judge.End(), MotionEnd::Stopped);
}

TEST_F(MotionJudgeTest, AMotionBackToItsStartIsAStop) {
    MotionJudge judge = Judge(MotionKind::Grip, At(28, State::Released));
    Add(judge, At(16, State::Gripping), 100);
    Add(judge, At(17, State::Releasing), 200);
    EXPECT_EQ(Add(judge, At(28, State::Released), 300), Progress::Reported);
    EXPECT_EQ(judge.End(), MotionEnd::Stopped);
    EXPECT_TRUE(judge.HasDiffered());
    EXPECT_FALSE(judge.HasChanged());
}

TEST_F(MotionJudgeTest, AMotionStateThatStandsStillDidNotMoveOrStopped) {
    ExpectStill(Judge(MotionKind::Grip, At(28, State::Released)), At(28, State::Gripping),
                MotionEnd::DidNotMove);
    ExpectStill(Judge(MotionKind::Grip, At(28, State::Released)), At(20, State::Gripping),
                MotionEnd::Stopped);
}

TEST_F(MotionJudgeTest, AFaultIsAnEndButNotOneFromBefore) {
    ExpectReported(Judge(MotionKind::Grip, At(28, State::Released)), At(20, State::Fault),
                   MotionEnd::Faulty);
    ExpectReported(Judge(MotionKind::Grip, At(28, State::Released)), At(20, State::Holding, kFault),
                   MotionEnd::Faulty);
    ExpectStill(Judge(MotionKind::Grip, At(28, State::Fault)), At(28, State::Fault),
                MotionEnd::Faulty);
    ExpectStill(Judge(MotionKind::Grip, At(28, State::Fault)), At(27.9, State::Fault),
                MotionEnd::Faulty);
    ExpectReported(Judge(MotionKind::Grip, At(28, State::Released)),
                   At(20, State::Holding, kTemperatureWarning), MotionEnd::Gripped);
}

TEST_F(MotionJudgeTest, ADriveThatIsOffNeedNotChange) {
    ExpectStill(Judge(MotionKind::Disable, At(10, State::Off)), At(10, State::Off),
                MotionEnd::SwitchedOff);
    ExpectStill(Judge(MotionKind::Disable, At(10, State::Holding)), At(10, State::Holding),
                MotionEnd::DidNotMove);
}

TEST_F(MotionJudgeTest, AtTheLimitOnlyWhatMovesIsMoving) {
    MotionJudge judge = Judge(MotionKind::Grip, At(28, State::Released));
    Add(judge, At(28, State::Gripping), 50);
    EXPECT_EQ(judge.EndAtLimit(), MotionEnd::DidNotMove);
    Add(judge, At(27, State::Gripping), 100);
    EXPECT_EQ(judge.EndAtLimit(), MotionEnd::Moving);
}

TEST_F(MotionJudgeTest, AfterProcessDataWereLostOnlyRestIsAnEnd) {
    MotionJudge judge = Judge(MotionKind::Grip, At(28, State::Released));
    EXPECT_EQ(Add(judge, At(20, State::Gripping), 50), Progress::Going);
    EXPECT_FALSE(judge.IsUncertain());
    EXPECT_EQ(Add(judge, ProcessData(0), 100), Progress::Going);
    EXPECT_EQ(Stay(judge, At(12.5, State::Holding), 200), Progress::AtRest);
    EXPECT_TRUE(judge.IsUncertain());
}

}  // namespace
}  // namespace tavrik
