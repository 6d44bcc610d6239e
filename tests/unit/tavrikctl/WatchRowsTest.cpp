#include "tavrikctl/WatchRows.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

namespace tavrik {
namespace {

class WatchRowsTest : public testing::Test {
protected:
    using Form = WatchRows::Form;

    void SetUp() override {
        setenv("TZ", "UTC", 1);  // NOLINT(concurrency-mt-unsafe)
        tzset();
        observation.data = ProcessData(0x44e204);  // position 12.50, state 4, temperature warning
    }

    std::string Row(Form form) const {
        return WatchRows(form).Row(observation, std::chrono::system_clock::time_point(
                                                    std::chrono::milliseconds(1700000000045)));
    }

    Observation observation;
};

TEST_F(WatchRowsTest, AlignedRowsStandBelowTheirTitles) {
    EXPECT_EQ(WatchRows(Form::Aligned).Header(), "TIME          STATE  POSITION  VALUES  FLAGS");
    EXPECT_EQ(Row(Form::Aligned), "22:13:20.045      4     12.50  fresh   temperature warning");
    observation.data = ProcessData(0x04e204);
    EXPECT_EQ(Row(Form::Aligned), "22:13:20.045      4     12.50  fresh   none");
}

TEST_F(WatchRowsTest, CsvHasAColumnForEachFlag) {
    EXPECT_EQ(WatchRows(Form::Csv).Header(),
              "time,state,position,fault,temperature_fault,temperature_warning,maintenance,values");
    EXPECT_EQ(Row(Form::Csv), "2023-11-14T22:13:20.045,4,12.50,0,0,1,0,fresh");
    observation.data = ProcessData(0xb00000);
    EXPECT_EQ(Row(Form::Csv), "2023-11-14T22:13:20.045,0,0.00,1,1,0,1,fresh");
}

TEST_F(WatchRowsTest, JsonHasAnObjectALine) {
    EXPECT_EQ(WatchRows(Form::Json).Header(), "");
    EXPECT_EQ(Row(Form::Json),
              R"({"time":"2023-11-14T22:13:20.045","state":4,"position":12.5,"fault":false,)"
              R"("temperatureFault":false,"temperatureWarning":true,"maintenance":false,)"
              R"("certain":true,"values":"fresh"})");
}

TEST_F(WatchRowsTest, WithoutDataCellsAreEmpty) {
    observation.data.reset();
    observation.trouble = "unplugged";
    EXPECT_EQ(Row(Form::Aligned), "22:13:20.045      -         -  none    unplugged");
    EXPECT_EQ(Row(Form::Csv), "2023-11-14T22:13:20.045,,,,,,,none");
    EXPECT_EQ(Row(Form::Json), R"({"time":"2023-11-14T22:13:20.045","values":"none"})");
}

TEST_F(WatchRowsTest, AWordTellsHowFarTheValuesCanBeTrusted) {
    EXPECT_EQ(WatchRows::ValuesWord(observation), "fresh");
    observation.silentSince = Observation::Clock::now();
    EXPECT_EQ(WatchRows::ValuesWord(observation), "silent");
    observation.frozen = true;
    EXPECT_EQ(WatchRows::ValuesWord(observation), "frozen");
    observation.silentSince.reset();
    observation.frozen = false;
    observation.probed = false;
    EXPECT_EQ(WatchRows::ValuesWord(observation), "unasked");
    observation.data = ProcessData(0);
    EXPECT_EQ(WatchRows::ValuesWord(observation), "zero");
}

}  // namespace
}  // namespace tavrik
