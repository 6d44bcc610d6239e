#include "pellix/CorvaneGripper.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "pellix/Protocol.h"
#include "tests/support/WaitFor.h"
#include "tests/unit/pellix/GripperOnLink.h"

using pellix::CorvaneGripper;
using pellix::Pellix;
using support::Messages;

namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();

}  // namespace

class CorvaneGripperTest : public GripperOnLink {
protected:
    /// @return whether every function that decodes PDIN returns its failure value
    bool HasNoProcessData() {
        return std::isnan(CorvaneGripper::GetPos(*link)) && CorvaneGripper::GetState(*link) == 0 &&
               !CorvaneGripper::GetFault(*link) && !CorvaneGripper::GetTempFault(*link) &&
               !CorvaneGripper::GetTempWarn(*link) && !CorvaneGripper::GetMaintenance(*link) &&
               CorvaneGripper::GetStatusNibble(*link) == 0 &&
               !CorvaneGripper::GetStatusFlag(*link, 0);
    }
};

TEST_F(CorvaneGripperTest, GripSetsDirectionEnableAndParameterSet) {
    StorePdout({0x04, 0x00});
    EXPECT_EQ(CorvaneGripper::Grip(*link, 3), pellix::kResultOk);
    EXPECT_EQ(TakeRequests(), Lines{"PDOUT=[3,3]"});
    StorePdout({0xF8, 0x07});
    EXPECT_EQ(CorvaneGripper::Grip(*link, 255), pellix::kResultOk);
    EXPECT_EQ(TakeRequests(), Lines{"PDOUT=[fb,ff]"});
}

TEST_F(CorvaneGripperTest, ReleaseKeepsTheHoldfastBit) {
    StorePdout({0x13, 0x03});
    EXPECT_EQ(CorvaneGripper::Release(*link, 1), pellix::kResultOk);
    EXPECT_EQ(TakeRequests(), Lines{"PDOUT=[12,1]"});
    StorePdout({0xFF, 0xFF});
    EXPECT_EQ(CorvaneGripper::Release(*link, 0), pellix::kResultOk);
    EXPECT_EQ(TakeRequests(), Lines{"PDOUT=[fa,0]"});
}

TEST_F(CorvaneGripperTest, DisableAndEnableChangeOnlyTheEnableBit) {
    StorePdout({0xFF, 0x07});
    EXPECT_EQ(CorvaneGripper::Disable(*link), pellix::kResultOk);
    EXPECT_EQ(TakeRequests(), Lines{"PDOUT=[fd,7]"});
    StorePdout({0x00, 0x09});
    EXPECT_EQ(CorvaneGripper::Disable(*link), pellix::kResultOk);
    EXPECT_EQ(TakeRequests(), Lines{"PDOUT=[0,9]"});
    EXPECT_EQ(CorvaneGripper::Enable(*link), pellix::kResultOk);
    EXPECT_EQ(TakeRequests(), Lines{"PDOUT=[2,9]"});
    StorePdout({0xFF, 0x07});
    EXPECT_EQ(CorvaneGripper::Enable(*link), pellix::kResultOk);
    EXPECT_EQ(TakeRequests(), Lines{"PDOUT=[ff,7]"});
}

TEST_F(CorvaneGripperTest, CommandsChangeOnlyTheirOwnBits) {
    using Operation = std::function<unsigned(Pellix&)>;
    struct Row {
        Operation operation;
        unsigned set;
        unsigned cleared;
    };
    const std::vector<Row> rows = {
        {[](Pellix& to) { return CorvaneGripper::Grip(to, 5); }, 0x03, 0x04},
        {[](Pellix& to) { return CorvaneGripper::Release(to, 5); }, 0x02, 0x05},
        {CorvaneGripper::Disable, 0x00, 0x02},
        {CorvaneGripper::Enable, 0x02, 0x00},
    };
    for (const Row& row : rows) {
        for (unsigned byte = 0; byte < 256; byte = byte < 32 ? byte + 1 : byte + 31) {
            StorePdout({static_cast<std::uint8_t>(byte), 5});
            EXPECT_EQ(row.operation(*link), pellix::kResultOk);
            const auto expected = static_cast<std::uint8_t>((byte | row.set) & ~row.cleared);
            EXPECT_EQ(TakeRequests(), Lines{"PDOUT=" + pellix::FormatByteList({expected, 5})});
        }
    }
}

TEST_F(CorvaneGripperTest, StoredOutputOfAnotherLengthIsRejectedAndNothingSent) {
    for (const Bytes& pdout : {Bytes{}, Bytes{1}, Bytes{1, 2, 3}}) {
        StorePdout(pdout);
        EXPECT_EQ(CorvaneGripper::Grip(*link, 1), pellix::kResultBadPdout);
        EXPECT_EQ(CorvaneGripper::Release(*link, 1), pellix::kResultBadPdout);
        EXPECT_EQ(CorvaneGripper::Disable(*link), pellix::kResultBadPdout);
        EXPECT_EQ(CorvaneGripper::Enable(*link), pellix::kResultBadPdout);
    }
    EXPECT_TRUE(TakeRequests().empty());
}

TEST_F(CorvaneGripperTest, ResultOfTheRequestIsPassedOn) {
    StorePdout({0, 0});
    master.SetAnswers("PDOUT=[3,1]", {"ERR PDOUT 33\n"});
    EXPECT_EQ(CorvaneGripper::Grip(*link, 1), 33U);
    master.SetAnswers("PARAM[2][0]=[e0]", {"ERR PARAM[2][0] 34\n"});
    EXPECT_EQ(CorvaneGripper::StoreRemanent(*link), 34U);
    link->Stop();
    EXPECT_EQ(CorvaneGripper::Grip(*link, 1), pellix::kResultNoCommand);
    EXPECT_EQ(CorvaneGripper::SetNoPartLimit(*link, 0, 1.0), pellix::kResultNoCommand);
}

TEST_F(CorvaneGripperTest, CommandStartsFromTheLastReportedOutput) {
    master.Send("@PDOUT=[10,7]\n");
    EXPECT_TRUE(support::WaitFor([this] {
        return link->GetDevice().GetPDOUT() == Bytes{0x10, 7};
    }));
    EXPECT_EQ(CorvaneGripper::Disable(*link), pellix::kResultOk);
    EXPECT_EQ(TakeRequests(), Lines{"PDOUT=[10,7]"});
    // The model stores output data only when the master reports them.
    EXPECT_EQ(CorvaneGripper::Enable(*link), pellix::kResultOk);
    EXPECT_EQ(CorvaneGripper::Disable(*link), pellix::kResultOk);
    EXPECT_EQ(TakeRequests(), (Lines{"PDOUT=[12,7]", "PDOUT=[10,7]"}));
}

TEST_F(CorvaneGripperTest, PositionIsInHundredths) {
    const std::vector<std::pair<Bytes, double>> positions = {
        {{0x09, 0xC4, 0, 0}, 25.0},   {{0xFF, 0x38, 0, 0}, -2.0},  {{0, 0, 0xFF, 0xFF}, 0.0},
        {{0x00, 0x01, 0, 0}, 0.01},   {{0xFF, 0xFF, 0, 0}, -0.01}, {{0x7F, 0xFF, 0, 0}, 327.67},
        {{0x80, 0x00, 0, 0}, -327.68}};
    for (const auto& [pdin, position] : positions) {
        StorePdin(pdin);
        EXPECT_EQ(CorvaneGripper::GetPos(*link), position);
    }
}

TEST_F(CorvaneGripperTest, EveryRawPositionIsDecodedAsByTheSlowReference) {
    for (int high = 0; high < 256; ++high) {
        for (int low = 0; low < 256; ++low) {
            StorePdin({static_cast<std::uint8_t>(high), static_cast<std::uint8_t>(low), 0, 0});
            int raw = high * 256 + low;
            if (raw > 32767) {
                raw -= 65536;
            }
            ASSERT_EQ(CorvaneGripper::GetPos(*link), raw / 100.0) << raw;
        }
    }
}

TEST_F(CorvaneGripperTest, StateAndFlagsComeFromTheLastByte) {
    StorePdin({0x09, 0xC4, 0x00, 0xA3});
    EXPECT_EQ(CorvaneGripper::GetState(*link), 3);
    EXPECT_FALSE(CorvaneGripper::GetFault(*link));
    EXPECT_TRUE(CorvaneGripper::GetTempFault(*link));
    EXPECT_FALSE(CorvaneGripper::GetTempWarn(*link));
    EXPECT_TRUE(CorvaneGripper::GetMaintenance(*link));
    for (int byte = 0; byte < 256; ++byte) {
        StorePdin({0xFF, 0xFF, 0xFF, static_cast<std::uint8_t>(byte)});
        ASSERT_EQ(CorvaneGripper::GetState(*link), byte % 16);
        ASSERT_EQ(CorvaneGripper::GetFault(*link), byte / 16 % 2 == 1);
        ASSERT_EQ(CorvaneGripper::GetTempFault(*link), byte / 32 % 2 == 1);
        ASSERT_EQ(CorvaneGripper::GetTempWarn(*link), byte / 64 % 2 == 1);
        ASSERT_EQ(CorvaneGripper::GetMaintenance(*link), byte / 128 == 1);
    }
}

TEST_F(CorvaneGripperTest, StatusComesFromTheThirdByte) {
    for (int byte = 0; byte < 256; ++byte) {
        StorePdin({0, 0, static_cast<std::uint8_t>(byte), 0});
        ASSERT_EQ(CorvaneGripper::GetStatusNibble(*link), byte % 16);
        ASSERT_EQ(CorvaneGripper::GetStatusFlag(*link, 0), byte / 16 % 2 == 1);
        ASSERT_EQ(CorvaneGripper::GetStatusFlag(*link, 1), byte / 32 % 2 == 1);
        ASSERT_EQ(CorvaneGripper::GetStatusFlag(*link, 2), byte / 64 % 2 == 1);
        ASSERT_EQ(CorvaneGripper::GetStatusFlag(*link, 3), byte / 128 == 1);
    }
}

TEST_F(CorvaneGripperTest, ProcessDataOfAnotherLengthGiveTheFailureValues) {
    for (const std::size_t length : {0U, 1U, 2U, 3U, 5U, 64U}) {
        StorePdin(Bytes(length, 0xFF));
        log.Clear();
        EXPECT_TRUE(HasNoProcessData()) << length;
        EXPECT_TRUE(log.All().empty());
    }
    StorePdin(Bytes(4, 0xFF));
    EXPECT_FALSE(HasNoProcessData());
}

TEST_F(CorvaneGripperTest, ReadersOfProcessDataSendNothing) {
    StorePdin({1, 2, 3, 4});
    HasNoProcessData();
    EXPECT_TRUE(TakeRequests().empty());
}

TEST_F(CorvaneGripperTest, LimitsAreReadFromTheirSet) {
    master.SetValue("PARAM[96][1]", "[4,e2]");
    master.SetValue("PARAM[98][2]", "[ff,38]");
    EXPECT_EQ(CorvaneGripper::GetNoPartLimit(*link, 0), 12.5);
    EXPECT_EQ(CorvaneGripper::GetReleaseLimit(*link, 2), -2.0);
    EXPECT_EQ(TakeRequests(), (Lines{"PARAM[96][1]?", "PARAM[98][2]?"}));
}

TEST_F(CorvaneGripperTest, NumberOfTheSetIsAddedUnchecked) {
    CorvaneGripper::GetNoPartLimit(*link, 255);
    CorvaneGripper::SetReleaseLimit(*link, 160, 0.0);
    EXPECT_EQ(TakeRequests(), (Lines{"PARAM[351][1]?", "PARAM[256][2]=[0,0]"}));
}

TEST_F(CorvaneGripperTest, LimitOfAnotherLengthIsNaN) {
    for (const char* value : {"[]", "[1]", "[1,2,3]"}) {
        master.SetValue("PARAM[96][1]", value);
        master.SetValue("PARAM[96][2]", value);
        EXPECT_TRUE(std::isnan(CorvaneGripper::GetNoPartLimit(*link, 0))) << value;
        EXPECT_TRUE(std::isnan(CorvaneGripper::GetReleaseLimit(*link, 0))) << value;
    }
}

TEST_F(CorvaneGripperTest, FailedReadGivesTheValueStoredBefore) {
    master.SetValue("PARAM[96][1]", "[0,64]");
    EXPECT_EQ(CorvaneGripper::GetNoPartLimit(*link, 0), 1.0);
    master.SetAnswers("PARAM[96][1]?", {"ERR PARAM[96][1] 7\n"});
    EXPECT_EQ(CorvaneGripper::GetNoPartLimit(*link, 0), 1.0);
    EXPECT_TRUE(std::isnan(CorvaneGripper::GetNoPartLimit(*link, 1)));  // nothing was stored
}

TEST_F(CorvaneGripperTest, LimitsAreSentAsHundredthsPlusAHalfTruncatedTowardZero) {
    const std::vector<std::pair<double, int>> limits = {
        {12.5, 1250}, {0.994, 99}, {0.0, 0},   {0.005, 1},      {0.0049, 0},     {-2.0, -199},
        {-0.01, 0},   {-0.02, -1}, {1.0, 100}, {327.66, 32766}, {-327.0, -32699}};
    for (const auto& [value, raw] : limits) {
        const auto bits = static_cast<unsigned>(raw) & 0xFFFF;
        const std::string bytes = pellix::FormatByteList(
            {static_cast<std::uint8_t>(bits / 256), static_cast<std::uint8_t>(bits % 256)});
        EXPECT_EQ(CorvaneGripper::SetNoPartLimit(*link, 0, value), pellix::kResultOk);
        EXPECT_EQ(CorvaneGripper::SetReleaseLimit(*link, 2, value), pellix::kResultOk);
        EXPECT_EQ(TakeRequests(), (Lines{"PARAM[96][1]=" + bytes, "PARAM[98][2]=" + bytes}))
            << value;
    }
}

TEST_F(CorvaneGripperTest, LimitsOutOfRangeAreClamped) {
    for (const double value : {327.67, 327.68, 400.0, 1e300, kInfinity}) {
        EXPECT_EQ(CorvaneGripper::SetNoPartLimit(*link, 0, value), pellix::kResultOk);
        EXPECT_EQ(TakeRequests(), Lines{"PARAM[96][1]=[7f,ff]"}) << value;
    }
    for (const double value : {-327.69, -400.0, -1e300, -kInfinity}) {
        EXPECT_EQ(CorvaneGripper::SetNoPartLimit(*link, 0, value), pellix::kResultOk);
        EXPECT_EQ(TakeRequests(), Lines{"PARAM[96][1]=[80,0]"}) << value;
    }
}

TEST_F(CorvaneGripperTest, NaNLimitIsNotSent) {
    const double none = std::numeric_limits<double>::quiet_NaN();
    EXPECT_EQ(CorvaneGripper::SetNoPartLimit(*link, 0, none), pellix::kResultNoCommand);
    EXPECT_EQ(CorvaneGripper::SetReleaseLimit(*link, 0, none), pellix::kResultNoCommand);
    EXPECT_TRUE(TakeRequests().empty());
}

TEST_F(CorvaneGripperTest, OverridesAreReadAsOneByte) {
    master.SetValue("PARAM[64][1]", "[64]");
    master.SetValue("PARAM[64][2]", "[ff]");
    EXPECT_EQ(CorvaneGripper::GetOverrideGrip(*link), 100);
    EXPECT_EQ(CorvaneGripper::GetOverrideRelease(*link), 255);
    EXPECT_EQ(TakeRequests(), (Lines{"PARAM[64][1]?", "PARAM[64][2]?"}));
    for (const char* value : {"[]", "[1,2]"}) {
        master.SetValue("PARAM[64][1]", value);
        master.SetValue("PARAM[64][2]", value);
        EXPECT_EQ(CorvaneGripper::GetOverrideGrip(*link), 0) << value;
        EXPECT_EQ(CorvaneGripper::GetOverrideRelease(*link), 0) << value;
    }
}

TEST_F(CorvaneGripperTest, ChecksumIsLittleEndian) {
    const std::vector<std::pair<std::string, std::uint32_t>> checksums = {
        {"[1,2,3,4]", 0x04030201},
        {"[0,0,0,80]", 0x80000000},
        {"[ff,ff,ff,ff]", 0xFFFFFFFF},
        {"[]", 0},
        {"[1,2,3]", 0},
        {"[1,2,3,4,5]", 0}};
    for (const auto& [value, checksum] : checksums) {
        master.SetValue("PARAM[3][4]", value);
        EXPECT_EQ(CorvaneGripper::GetParameterChecksum(*link), checksum) << value;
        EXPECT_EQ(TakeRequests(), Lines{"PARAM[3][4]?"});
    }
}

TEST_F(CorvaneGripperTest, StoreRemanentIsASystemCommand) {
    EXPECT_EQ(CorvaneGripper::StoreRemanent(*link), pellix::kResultOk);
    EXPECT_EQ(TakeRequests(), Lines{"PARAM[2][0]=[e0]"});
}
