#include "tavrikctl/WatchView.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

namespace tavrik {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

class WatchRowsTest : public testing::Test {
protected:
    void SetUp() override {
        setenv("TZ", "UTC", 1);  // NOLINT(concurrency-mt-unsafe)
        tzset();
        observation.data = ProcessData(0x44e204);  // position 12.50, state 4, temperature warning
    }

    std::string Row(RowForm form) const {
        return WatchRow(form, observation,
                        std::chrono::system_clock::time_point(milliseconds(1700000000045)));
    }

    Observation observation;
};

TEST_F(WatchRowsTest, AlignedRowsMatchTheirTitles) {
    EXPECT_EQ(WatchHeader(RowForm::Aligned), "TIME          STATE  POSITION  VALUES  FLAGS");
    EXPECT_EQ(Row(RowForm::Aligned), "22:13:20.045      4     12.50  fresh   temperature warning");
    observation.data = ProcessData(0x04e204);
    EXPECT_EQ(Row(RowForm::Aligned), "22:13:20.045      4     12.50  fresh   none");
}

TEST_F(WatchRowsTest, CsvHasAColumnForEachFlag) {
    EXPECT_EQ(WatchHeader(RowForm::Csv),
              "time,state,position,fault,temperature_fault,temperature_warning,maintenance,values");
    EXPECT_EQ(Row(RowForm::Csv), "2023-11-14T22:13:20.045,4,12.50,0,0,1,0,fresh");
    observation.data = ProcessData(0xb00000);
    EXPECT_EQ(Row(RowForm::Csv), "2023-11-14T22:13:20.045,0,0.00,1,1,0,1,fresh");
}

TEST_F(WatchRowsTest, JsonHasOneObjectPerLine) {
    EXPECT_EQ(WatchHeader(RowForm::Json), "");
    EXPECT_EQ(Row(RowForm::Json),
              R"({"time":"2023-11-14T22:13:20.045","state":4,"position":12.5,"fault":false,)"
              R"("temperatureFault":false,"temperatureWarning":true,"maintenance":false,)"
              R"("certain":true,"values":"fresh"})");
}

TEST_F(WatchRowsTest, WithoutDataCellsAreEmpty) {
    observation.data.reset();
    observation.error = "unplugged";
    EXPECT_EQ(Row(RowForm::Aligned), "22:13:20.045      -         -  none    unplugged");
    EXPECT_EQ(Row(RowForm::Csv), "2023-11-14T22:13:20.045,,,,,,,none");
    EXPECT_EQ(Row(RowForm::Json), R"({"time":"2023-11-14T22:13:20.045","values":"none"})");
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

constexpr int kState = 0x060000;

/// What GetPDINExcerpt answers for a position in hundredths, in state 6.
int Excerpt(int hundredths) {
    const auto raw = static_cast<unsigned>(hundredths);
    return static_cast<int>((raw >> 8U & 0xffU) | (raw & 0xffU) << 8U) + kState;
}

class WatchViewTest : public testing::Test {
protected:
    static Observation At(milliseconds time, int excerpt) {
        Observation observation;
        observation.time = Observation::Clock::time_point(time);
        observation.data = ProcessData(excerpt);
        return observation;
    }

    std::vector<std::string> Lines(std::size_t width, std::size_t height) const {
        std::vector<std::string> lines;
        for (const Cell& line : view.Render(width, height)) {
            lines.push_back(line.text);
        }
        return lines;
    }

    WatchView view{"HVA SN:1", "localhost:44221"};
};

TEST_F(WatchViewTest, WithoutAnObservationItWaits) {
    EXPECT_EQ(Lines(30, 24), (std::vector<std::string>{"HVA SN:1       localhost:44221", "",
                                                       "waiting for the daemon", "", "q: quit"}));
}

TEST_F(WatchViewTest, TheScreenHasValuesBarAndPlot) {
    view.Add(At(seconds(30), Excerpt(0)));
    view.Add(At(seconds(45), Excerpt(1000)));
    view.Add(At(seconds(60), Excerpt(500)));
    EXPECT_EQ(Lines(45, 15), (std::vector<std::string>{
                                 "HVA SN:1                      localhost:44221",
                                 "",
                                 "position     5.00   state   6     - calls/s",
                                 "flags     none",
                                 "values    fresh",
                                 "",
                                 "0.00 [################                ] 10.00",
                                 "",
                                 "  10.00 |                 *                  ",
                                 "        |                                   *",
                                 "        |                                    ",
                                 "   0.00 |                                    ",
                                 "         -30 s                            now",
                                 "",
                                 "q: quit",
                             }));
}

TEST_F(WatchViewTest, ThePlotUsesTheAvailableHeight) {
    view.Add(At(seconds(0), Excerpt(0)));
    EXPECT_EQ(Lines(80, 100).size(), 23U);
    EXPECT_EQ(Lines(80, 24).size(), 23U);
    EXPECT_EQ(Lines(80, 20).size(), 20U);
    EXPECT_EQ(Lines(80, 14).size(), 14U);
    EXPECT_EQ(Lines(80, 13).size(), 9U);
    EXPECT_EQ(Lines(80, 13).back(), "q: quit");
    EXPECT_EQ(Lines(80, 3).size(), 3U);
    EXPECT_TRUE(Lines(80, 0).empty());
}

TEST_F(WatchViewTest, NoLineIsWiderThanTheScreen) {
    view.Add(At(seconds(0), Excerpt(-32768)));
    for (const std::size_t width : {0U, 1U, 10U, 20U, 50U, 51U, 80U, 200U}) {
        for (const std::string& line : Lines(width, 24)) {
            EXPECT_LE(line.size(), width) << line;
        }
    }
}

TEST_F(WatchViewTest, ALongNameReplacesTheServer) {
    const WatchView longNamed(std::string(40, 'n'), "localhost:44221");
    EXPECT_EQ(longNamed.Render(30, 24)[0].text, std::string(30, 'n'));
}

TEST_F(WatchViewTest, TheScaleCoversAllPositionsSeen) {
    view.Add(At(seconds(0), Excerpt(-500)));
    view.Add(At(seconds(1), Excerpt(2000)));
    view.Add(At(seconds(100), Excerpt(2000)));
    EXPECT_EQ(Lines(31, 14)[6], "-5.00 [#################] 20.00");
}

TEST_F(WatchViewTest, CallsAreCountedOverTheLastSecond) {
    std::uint64_t calls = 0;
    for (int ms = 0; ms <= 3000; ms += 50) {
        Observation observation = At(milliseconds(ms), Excerpt(0));
        observation.calls = ++calls;
        view.Add(observation);
    }
    EXPECT_EQ(Lines(80, 24)[2], "position     0.00   state   6    20 calls/s");
}

TEST_F(WatchViewTest, FlagsAreAlarming) {
    view.Add(At(seconds(0), 0x300000));
    EXPECT_EQ(Lines(80, 24)[3], "flags     fault, temperature fault");
    EXPECT_TRUE(view.Render(80, 24)[3].alarming);
    EXPECT_FALSE(view.Render(80, 24)[4].alarming);
}

TEST_F(WatchViewTest, FrozenValuesAreAlarming) {
    Observation observation = At(seconds(10), Excerpt(0));
    observation.silentSince = Observation::Clock::time_point(seconds(6));
    observation.frozen = true;
    view.Add(observation);
    EXPECT_EQ(Lines(80, 24)[4], "values    frozen: the master has not answered for 4 s");
    EXPECT_TRUE(view.Render(80, 24)[4].alarming);
    observation.frozen = false;
    view.Add(observation);
    EXPECT_EQ(Lines(80, 24)[4], "values    changing, but the master has not answered for 4 s");
}

TEST_F(WatchViewTest, WithoutProcessDataTheReasonIsShown) {
    view.Add(At(seconds(0), Excerpt(1000)));
    Observation observation;
    observation.time = Observation::Clock::time_point(seconds(1));
    observation.error = "unplugged";
    view.Add(observation);
    EXPECT_EQ(Lines(45, 14)[2], "position        -   state   -     0 calls/s");
    EXPECT_EQ(Lines(45, 14)[3], "flags     -");
    EXPECT_EQ(Lines(45, 14)[4], "values    unplugged");
    EXPECT_EQ(Lines(45, 14)[6], "0.00 [                                ] 10.00");
    view.Add(At(seconds(2), 0));
    EXPECT_EQ(Lines(45, 14)[4], "values    all zero: possibly no process data");
}

}  // namespace
}  // namespace tavrik
