#include "tools/WatchRows.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

namespace tavrikctl {
namespace {

class WatchRowsTest : public testing::Test {
protected:
    void SetUp() override {
        setenv("TZ", "UTC", 1);  // NOLINT(concurrency-mt-unsafe)
        tzset();
        observation.data = ProcessData(0x44e204);  // position 12.50, state 4, temperature warning
    }

    std::string Row(bool csv) const {
        return WatchRows(csv).Row(observation, std::chrono::system_clock::time_point(
                                                   std::chrono::milliseconds(1700000000045)));
    }

    Observation observation;
};

TEST_F(WatchRowsTest, AlignedRowsStandBelowTheirTitles) {
    EXPECT_EQ(WatchRows(false).Header(), "TIME          STATE  POSITION  VALUES  FLAGS");
    EXPECT_EQ(Row(false), "22:13:20.045      4     12.50  fresh   temperature warning");
    observation.data = ProcessData(0x04e204);
    EXPECT_EQ(Row(false), "22:13:20.045      4     12.50  fresh   none");
}

TEST_F(WatchRowsTest, CsvHasAColumnForEachFlag) {
    EXPECT_EQ(WatchRows(true).Header(),
              "time,state,position,fault,temperature_fault,temperature_warning,maintenance,values");
    EXPECT_EQ(Row(true), "2023-11-14T22:13:20.045,4,12.50,0,0,1,0,fresh");
    observation.data = ProcessData(0xb00000);
    EXPECT_EQ(Row(true), "2023-11-14T22:13:20.045,0,0.00,1,1,0,1,fresh");
}

TEST_F(WatchRowsTest, WithoutDataCellsAreEmpty) {
    observation.data.reset();
    observation.trouble = "unplugged";
    EXPECT_EQ(Row(false), "22:13:20.045      -         -  none    unplugged");
    EXPECT_EQ(Row(true), "2023-11-14T22:13:20.045,,,,,,,none");
}

TEST_F(WatchRowsTest, AWordTellsHowFarTheValuesCanBeTrusted) {
    EXPECT_EQ(WatchRows::ValuesWord(observation), "fresh");
    observation.silentSince = Observation::Clock::now();
    EXPECT_EQ(WatchRows::ValuesWord(observation), "silent");
    observation.frozen = true;
    EXPECT_EQ(WatchRows::ValuesWord(observation), "frozen");
    observation.silentSince.reset();
    observation.frozen = false;
    observation.data = ProcessData(0);
    EXPECT_EQ(WatchRows::ValuesWord(observation), "zero");
}

}  // namespace
}  // namespace tavrikctl
