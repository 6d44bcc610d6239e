#include "tavrikctl/WatchRows.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <utility>

namespace tavrik {
namespace {

using std::chrono::milliseconds;

class WatchRowsTest : public testing::Test {
protected:
    void SetUp() override {
        setenv("TZ", "UTC", 1);  // NOLINT(concurrency-mt-unsafe)
        tzset();
        observation.gripper = "HVA SN:1";
        observation.data = ProcessData(0x44e204);  // position 12.50, state 4, temperature warning
    }

    std::string Row(RowForm form) const {
        return WatchRow(form, observation,
                        std::chrono::system_clock::time_point(milliseconds(1700000000045)), 9);
    }

    Observation observation;
};

TEST_F(WatchRowsTest, AlignedRowsMatchTheirTitles) {
    EXPECT_EQ(WatchHeader(RowForm::Aligned, 9),
              "TIME          GRIPPER    STATE  POSITION  VALUES   FLAGS");
    EXPECT_EQ(Row(RowForm::Aligned),
              "22:13:20.045  HVA SN:1       4     12.50  fresh    temperature warning");
    observation.data = ProcessData(0x04e204);
    EXPECT_EQ(Row(RowForm::Aligned), "22:13:20.045  HVA SN:1       4     12.50  fresh    none");
    observation.gripper = "\xe4\xb8\xad";
    EXPECT_EQ(Row(RowForm::Aligned),
              "22:13:20.045  \xe4\xb8\xad             4     12.50  fresh    none");
}

TEST_F(WatchRowsTest, CsvHasAColumnForEachFlag) {
    EXPECT_EQ(WatchHeader(RowForm::Csv, 0),
              "time,gripper,state,position,fault,temperatureFault,temperatureWarning,maintenance,"
              "certain,values");
    EXPECT_EQ(Row(RowForm::Csv), "2023-11-14T22:13:20.045+00:00,HVA SN:1,4,12.50,0,0,1,0,1,fresh");
    observation.data = ProcessData(0xb00000);
    EXPECT_EQ(Row(RowForm::Csv), "2023-11-14T22:13:20.045+00:00,HVA SN:1,0,0.00,1,1,0,1,1,fresh");
}

TEST_F(WatchRowsTest, CsvQuotesNamesThatContainItsSeparators) {
    observation.gripper = "a,\"b\"\n SN:1";
    EXPECT_EQ(Row(RowForm::Csv).substr(29, 19), ",\"a,\"\"b\"\"? SN:1\",4,");
}

TEST_F(WatchRowsTest, JsonHasOneObjectPerLine) {
    EXPECT_EQ(WatchHeader(RowForm::Json, 0), "");
    EXPECT_EQ(Row(RowForm::Json),
              R"({"time":"2023-11-14T22:13:20.045+00:00","gripper":"HVA SN:1","state":4,)"
              R"("position":12.5,"fault":false,"temperatureFault":false,)"
              R"("temperatureWarning":true,"maintenance":false,"certain":true,"values":"fresh"})");
    observation.gripper = "\xff\x1b";
    EXPECT_NE(Row(RowForm::Json).find(R"("gripper":"\ufffd\u001b")"), std::string::npos);
}

TEST_F(WatchRowsTest, WithoutDataCellsAreEmpty) {
    observation.data.reset();
    observation.error = "unplugged";
    EXPECT_EQ(Row(RowForm::Aligned),
              "22:13:20.045  HVA SN:1       -         -  none     unplugged");
    EXPECT_EQ(Row(RowForm::Csv), "2023-11-14T22:13:20.045+00:00,HVA SN:1,,,,,,,,none");
    EXPECT_EQ(Row(RowForm::Json),
              R"({"time":"2023-11-14T22:13:20.045+00:00","gripper":"HVA SN:1","values":"none"})");
}

TEST_F(WatchRowsTest, TimesHaveTheOffsetFromUtc) {
    for (const auto& [zone, time] : {std::pair("XXX-5:30", "2023-11-15T03:43:20.045+05:30"),
                                     {"XXX+3:30", "2023-11-14T18:43:20.045-03:30"}}) {
        setenv("TZ", zone, 1);  // NOLINT(concurrency-mt-unsafe)
        tzset();
        EXPECT_EQ(Row(RowForm::Csv).substr(0, 29), time);
    }
}

TEST_F(WatchRowsTest, AWordTellsHowFarTheValuesCanBeTrusted) {
    EXPECT_EQ(ValuesWord(observation), "fresh");
    observation.silentSince = Observation::Clock::now();
    EXPECT_EQ(ValuesWord(observation), "silent");
    observation.frozen = true;
    EXPECT_EQ(ValuesWord(observation), "frozen");
    observation.silentSince.reset();
    observation.frozen = false;
    observation.probed = false;
    EXPECT_EQ(ValuesWord(observation), "unasked");
    observation.data = ProcessData(0);
    EXPECT_EQ(ValuesWord(observation), "zero");
}

}  // namespace
}  // namespace tavrik
