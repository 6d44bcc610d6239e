#include "simulator/SimulatedGripper.h"

#include <gtest/gtest.h>

#include <chrono>

namespace simulator {
namespace {

using std::chrono::milliseconds;

TEST(GripperModelTest, EveryModelHasItsDeviceId) {
    EXPECT_EQ(FindGripperModel("TLM")->deviceId, 10U);
    EXPECT_EQ(FindGripperModel("HVA")->deviceId, 20U);
    EXPECT_EQ(FindGripperModel("MZD-S")->deviceId, 40U);
    EXPECT_EQ(FindGripperModel("MZD-L")->deviceId, 50U);
}

TEST(GripperModelTest, RejectsOtherNames) {
    EXPECT_EQ(FindGripperModel("hva"), nullptr);
    EXPECT_EQ(FindGripperModel("MZD"), nullptr);
    EXPECT_EQ(FindGripperModel(""), nullptr);
}

constexpr std::uint8_t kRelease = 0x02;
constexpr std::uint8_t kGrip = 0x03;
constexpr std::uint8_t kReference = 0x06;
constexpr std::uint8_t kHoldfast = 0x10;
constexpr ParameterKey kChecksum{3, 4};

/// Time passes only in After().
class SimulatedGripperTest : public testing::Test {
protected:
    explicit SimulatedGripperTest(const char* model = "HVA")
        : gripper(*FindGripperModel(model), {'P'}, {'S'}, now) {}

    void After(milliseconds time) {
        now += time;
        gripper.Advance(now);
    }

    void Output(std::uint8_t bits, std::uint8_t set = 0) { gripper.SetProcessOutput({bits, set}); }

    void RunReference() {
        Output(kReference);
        After(milliseconds(5000));
        ASSERT_EQ(gripper.State(), GripperState::Ready);
    }

    TimePoint now{std::chrono::hours(1)};
    SimulatedGripper gripper;
};

class TlmTest : public SimulatedGripperTest {
protected:
    TlmTest() : SimulatedGripperTest("TLM") {}
};

class MzdTest : public SimulatedGripperTest {
protected:
    MzdTest() : SimulatedGripperTest("MZD-S") {}
};

TEST_F(SimulatedGripperTest, NeedsAReferenceRunAfterPowerUp) {
    EXPECT_EQ(gripper.State(), GripperState::NeedsReference);
    const double before = gripper.Position();
    Output(kGrip);
    After(milliseconds(1000));
    EXPECT_EQ(gripper.State(), GripperState::NeedsReference);
    EXPECT_EQ(gripper.Position(), before);
}

TEST_F(SimulatedGripperTest, AReferenceRunGoesToTheOuterEndStopAtHalfSpeed) {
    Output(kReference);
    After(milliseconds(100));
    EXPECT_EQ(gripper.State(), GripperState::Referencing);
    EXPECT_NEAR(gripper.Position(), 13.0, 1e-6);
    After(milliseconds(1000));
    EXPECT_EQ(gripper.State(), GripperState::Ready);
    EXPECT_EQ(gripper.Position(), 30.0);
}

TEST_F(SimulatedGripperTest, AReferenceRunInwardsEndsAtZero) {
    ASSERT_EQ(gripper.WriteParameter({0x40, 3}, {0xff}), ErrorCode::None);
    RunReference();
    EXPECT_EQ(gripper.Position(), 0.0);
}

TEST_F(SimulatedGripperTest, APartInTheWayFailsAReferenceRunInwards) {
    gripper.WriteParameter({0x40, 3}, {0xff});
    gripper.SetPart(4.0);
    Output(kReference);
    After(milliseconds(5000));
    EXPECT_EQ(gripper.State(), GripperState::NeedsReference);
    EXPECT_EQ(gripper.Position(), 4.0);
}

TEST_F(SimulatedGripperTest, ARequestStartsOneReferenceRun) {
    RunReference();
    Output(kGrip);
    After(milliseconds(5000));
    Output(kReference);
    EXPECT_EQ(gripper.State(), GripperState::Referencing);
    After(milliseconds(5000));
    EXPECT_EQ(gripper.State(), GripperState::Ready);
    Output(kReference);
    EXPECT_EQ(gripper.State(), GripperState::Ready);
}

TEST_F(SimulatedGripperTest, MovesAtAFiniteSpeed) {
    RunReference();
    Output(kGrip);
    After(milliseconds(100));
    EXPECT_EQ(gripper.State(), GripperState::Gripping);
    EXPECT_NEAR(gripper.Position(), 24.0, 1e-6);
}

TEST_F(SimulatedGripperTest, StopsAtTheNoPartLimitWithoutAPart) {
    RunReference();
    Output(kGrip);
    After(milliseconds(5000));
    EXPECT_EQ(gripper.State(), GripperState::NoPart);
    EXPECT_EQ(gripper.Position(), 2.0);
}

TEST_F(SimulatedGripperTest, HoldsAPartAtItsWidth) {
    gripper.SetPart(12.34);
    RunReference();
    Output(kGrip);
    After(milliseconds(5000));
    EXPECT_EQ(gripper.State(), GripperState::Holding);
    EXPECT_EQ(gripper.Position(), 12.34);
}

TEST_F(SimulatedGripperTest, ContinuesWhenThePartIsRemoved) {
    gripper.SetPart(12.0);
    RunReference();
    Output(kGrip);
    After(milliseconds(5000));
    gripper.SetPart(std::nullopt);
    After(milliseconds(10));
    EXPECT_EQ(gripper.State(), GripperState::Gripping);
    After(milliseconds(5000));
    EXPECT_EQ(gripper.State(), GripperState::NoPart);
}

TEST_F(SimulatedGripperTest, IgnoresAPartWiderThanTheGapUntilTheFingersOpen) {
    RunReference();
    Output(kGrip);
    After(milliseconds(5000));
    gripper.SetPart(12.0);
    After(milliseconds(100));
    EXPECT_EQ(gripper.State(), GripperState::NoPart);
    Output(kRelease);
    After(milliseconds(5000));
    Output(kGrip);
    After(milliseconds(5000));
    EXPECT_EQ(gripper.State(), GripperState::Holding);
}

TEST_F(SimulatedGripperTest, IgnoresAPartThinnerThanTheNoPartLimit) {
    gripper.SetPart(1.5);
    RunReference();
    Output(kGrip);
    After(milliseconds(5000));
    EXPECT_EQ(gripper.State(), GripperState::NoPart);
    EXPECT_EQ(gripper.Position(), 2.0);
}

TEST_F(SimulatedGripperTest, ReleasesToTheLimitOfTheSelectedSet) {
    gripper.WriteParameter({0x63, 2}, {0x04, 0xe2});
    RunReference();
    Output(kRelease, 3);
    After(milliseconds(5000));
    EXPECT_EQ(gripper.State(), GripperState::Released);
    EXPECT_EQ(gripper.Position(), 12.5);
}

TEST_F(SimulatedGripperTest, LimitsAreClampedToTheStroke) {
    gripper.WriteParameter({0x60, 1}, {0xff, 0x38});
    gripper.WriteParameter({0x60, 2}, {0x7f, 0xff});
    RunReference();
    Output(kGrip);
    After(milliseconds(5000));
    EXPECT_EQ(gripper.Position(), 0.0);
    Output(kRelease);
    After(milliseconds(5000));
    EXPECT_EQ(gripper.Position(), 30.0);
}

TEST_F(SimulatedGripperTest, DoesNotMoveForAnUnknownParameterSet) {
    RunReference();
    Output(kGrip, 200);
    After(milliseconds(1000));
    EXPECT_EQ(gripper.State(), GripperState::Ready);
    EXPECT_EQ(gripper.Position(), 30.0);
}

TEST_F(SimulatedGripperTest, OverridesScaleTheSpeed) {
    gripper.WriteParameter({0x40, 1}, {50});
    gripper.WriteParameter({0x40, 2}, {200});
    RunReference();
    Output(kGrip);
    After(milliseconds(100));
    EXPECT_NEAR(gripper.Position(), 27.0, 1e-6);
    After(milliseconds(100));
    Output(kRelease);
    After(milliseconds(50));
    EXPECT_NEAR(gripper.Position(), 27.0, 1e-6) << "200 is limited to 100";
}

TEST_F(SimulatedGripperTest, ADisabledDriveStops) {
    RunReference();
    Output(kGrip);
    After(milliseconds(100));
    const double before = gripper.Position();
    Output(0x01);
    After(milliseconds(1000));
    EXPECT_EQ(gripper.State(), GripperState::Off);
    EXPECT_EQ(gripper.Position(), before);
}

TEST_F(SimulatedGripperTest, AFaultStopsTheDriveUntilPdoutIsAssignedAgain) {
    RunReference();
    Output(kGrip);
    After(milliseconds(100));
    gripper.SetFlag(GripperFlag::TemperatureFault, true);
    const double before = gripper.Position();
    After(milliseconds(1000));
    EXPECT_EQ(gripper.State(), GripperState::Fault);
    gripper.SetFlag(GripperFlag::TemperatureFault, false);
    After(milliseconds(1000));
    EXPECT_EQ(gripper.State(), GripperState::Off);
    EXPECT_EQ(gripper.Position(), before);
    Output(kGrip);
    EXPECT_EQ(gripper.State(), GripperState::Gripping);
}

TEST_F(SimulatedGripperTest, WarningsDoNotStopTheDrive) {
    RunReference();
    gripper.SetFlag(GripperFlag::TemperatureWarning, true);
    gripper.SetFlag(GripperFlag::Maintenance, true);
    Output(kGrip);
    After(milliseconds(100));
    EXPECT_EQ(gripper.State(), GripperState::Gripping);
}

TEST_F(SimulatedGripperTest, ProcessInputContainsPositionStateAndFlags) {
    RunReference();
    Output(kGrip);
    After(milliseconds(100));
    gripper.SetFlag(GripperFlag::TemperatureWarning, true);
    gripper.SetFlag(GripperFlag::Maintenance, true);
    // 24.00 mm; referenced, moving, enabled; maintenance and warning, gripping.
    EXPECT_EQ(gripper.ProcessInput(), (Bytes{0x09, 0x60, 0x0b, 0xc5}));
    gripper.SetFlag(GripperFlag::Fault, true);
    gripper.SetFlag(GripperFlag::TemperatureFault, true);
    EXPECT_EQ(gripper.ProcessInput()[3], 0xff);
}

TEST_F(SimulatedGripperTest, ProcessInputContainsTheResultOfAMotion) {
    EXPECT_EQ(gripper.ProcessInput()[2], 0x80);
    RunReference();
    Output(kRelease);
    After(milliseconds(5000));
    EXPECT_EQ(gripper.ProcessInput()[2], 0x19);
    Output(kGrip);
    After(milliseconds(5000));
    EXPECT_EQ(gripper.ProcessInput()[2], 0x29);
    gripper.SetPart(5.0);
    Output(kRelease);
    After(milliseconds(5000));
    Output(kGrip);
    After(milliseconds(5000));
    EXPECT_EQ(gripper.ProcessInput()[2], 0x49);
}

TEST_F(SimulatedGripperTest, PowerUpResetsTheReferenceAndUnstoredParameters) {
    gripper.WriteParameter({0x60, 3}, {77});
    RunReference();
    gripper.PowerUp(now);
    EXPECT_EQ(gripper.State(), GripperState::NeedsReference);
    EXPECT_EQ(gripper.ProcessOutput(), (Bytes{0, 0}));
    EXPECT_EQ(*gripper.Parameters().Find({0x60, 3}), Bytes{50});
}

TEST_F(SimulatedGripperTest, TheStoreCommandStoresParameters) {
    gripper.WriteParameter({0x60, 3}, {77});
    EXPECT_EQ(gripper.WriteParameter({2, 0}, {0xe1}), ErrorCode::BadArgument);
    EXPECT_EQ(gripper.WriteParameter({2, 0}, {0xe0}), ErrorCode::None);
    gripper.PowerUp(now);
    EXPECT_EQ(*gripper.Parameters().Find({0x60, 3}), Bytes{77});
}

TEST_F(SimulatedGripperTest, TheChecksumParameterFollowsEveryChange) {
    const Bytes before = *gripper.Parameters().Find(kChecksum);
    ASSERT_EQ(before.size(), 4U);
    gripper.WriteParameter({0x60, 3}, {77});
    const Bytes after = *gripper.Parameters().Find(kChecksum);
    EXPECT_NE(after, before);
    const auto sum = gripper.Parameters().Checksum();
    EXPECT_EQ(after[0], sum & 0xffU) << "lowest byte first";
    EXPECT_EQ(after[3], sum >> 24U);
    gripper.PowerUp(now);
    EXPECT_EQ(*gripper.Parameters().Find(kChecksum), before);
}

TEST_F(SimulatedGripperTest, AnExplicitChecksumDoesNotChange) {
    gripper.DefineParameter(kChecksum, {1, 2});
    gripper.WriteParameter({0x60, 3}, {77});
    gripper.PowerUp(now);
    EXPECT_EQ(*gripper.Parameters().Find(kChecksum), (Bytes{1, 2}));
}

TEST_F(SimulatedGripperTest, HandlesParametersOfAnyLength) {
    gripper.DefineParameter({0x40, 1}, {});
    gripper.DefineParameter({0x40, 3}, {1, 2});
    gripper.DefineParameter({0x60, 1}, {1});
    RunReference();
    Output(kGrip);
    EXPECT_EQ(gripper.State(), GripperState::Ready);
}

TEST_F(TlmTest, HasNoReferenceRunAndNoForce) {
    EXPECT_EQ(gripper.State(), GripperState::Off);
    EXPECT_EQ(gripper.Parameters().Find({0x60, 3}), nullptr);
    EXPECT_EQ(gripper.Parameters().Find({0x40, 3}), nullptr);
    Output(kReference | 0x01);
    After(milliseconds(50));
    EXPECT_EQ(gripper.State(), GripperState::Ready) << "it ignores the request";
    Output(kGrip);
    After(milliseconds(5000));
    EXPECT_EQ(gripper.State(), GripperState::NoPart);
}

TEST_F(TlmTest, HasNoLedsAndNoHoldfast) {
    EXPECT_EQ(gripper.Parameters().Find({0x80, 1}), nullptr);
    gripper.SetPart(5.0);
    Output(kGrip | kHoldfast);
    After(milliseconds(5000));
    Output(0x01 | kHoldfast);
    EXPECT_EQ(gripper.State(), GripperState::Off);
}

TEST_F(MzdTest, HoldfastHoldsAPartWithTheDriveOff) {
    gripper.SetPart(5.0);
    RunReference();
    Output(kGrip | kHoldfast);
    After(milliseconds(5000));
    Output(0x01 | kHoldfast);
    EXPECT_EQ(gripper.State(), GripperState::Holding);
    EXPECT_EQ(gripper.ProcessInput()[2] & 0x04, 0x04);
    Output(0x01);
    EXPECT_EQ(gripper.State(), GripperState::Off);
}

TEST_F(MzdTest, HoldfastDoesNotHoldARemovedPart) {
    gripper.SetPart(5.0);
    RunReference();
    Output(kGrip | kHoldfast);
    After(milliseconds(5000));
    Output(0x01 | kHoldfast);
    gripper.SetPart(std::nullopt);
    After(milliseconds(1));
    EXPECT_EQ(gripper.State(), GripperState::Off);
}

TEST_F(MzdTest, KeepsItsLedSettings) {
    EXPECT_EQ(gripper.WriteParameter({0x87, 2}, {9}), ErrorCode::None);
    EXPECT_EQ(*gripper.Parameters().Find({0x87, 2}), Bytes{9});
    Output(0xa2);
    EXPECT_EQ(gripper.LedPreset(), 5U);
}

}  // namespace
}  // namespace simulator
