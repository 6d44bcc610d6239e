#include "tavrikctl/WatchView.h"

#include <gtest/gtest.h>

namespace tavrik {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr int kState = 0x060000;

/// What GetPDINExcerpt answers for a position in hundredths, in state 6.
int Excerpt(int hundredths) {
    const auto raw = static_cast<unsigned>(hundredths);
    return static_cast<int>((raw >> 8U & 0xffU) | (raw & 0xffU) << 8U) + kState;
}

class WatchViewTest : public testing::Test {
protected:
    Observation At(milliseconds time, int excerpt) {
        Observation observation;
        now = observation.time = Observation::Clock::time_point(time);
        observation.data = ProcessData(excerpt);
        return observation;
    }

    std::vector<std::string> Lines(std::size_t width, std::size_t height) const {
        std::vector<std::string> lines;
        for (const StyledText& line : view.Render(width, height, now)) {
            lines.push_back(line.text);
        }
        return lines;
    }

    WatchView view{"HVA SN:1", "localhost:44221"};
    Observation::Clock::time_point now;  // of the latest observation
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
    const WatchView longNamed("gripper of station 12 SN:1", "localhost:44221");
    EXPECT_EQ(longNamed.Render(30, 24, now)[0].text, "gripper of station 12 SN:1");
    EXPECT_EQ(longNamed.Render(20, 24, now)[0].text, "gripper of station");
    EXPECT_EQ(longNamed.Render(20, 24, now)[1].text, "12 SN:1");
}

TEST_F(WatchViewTest, ANarrowScreenHasTheValuesInTheOrderOfNeed) {
    view.Add(At(seconds(0), Excerpt(1000)));
    EXPECT_EQ(Lines(20, 6),
              (std::vector<std::string>{"HVA SN:1", "10.00 in state 6", "values fresh",
                                        "flags none", "", "0.00 [#######] 10.00"}));
    view.Add(At(seconds(1), 0xf00000));
    EXPECT_EQ(Lines(20, 6), (std::vector<std::string>{"HVA SN:1", "0.00 in state 0", "values fresh",
                                                      "flags fault,", "temperature fault,",
                                                      "temperature warning,"}));
    Observation observation = At(seconds(2), 0);
    observation.data.reset();
    observation.error = "HVA SN:1: no longer known to the daemon";
    view.Add(observation);
    EXPECT_EQ(Lines(20, 6),
              (std::vector<std::string>{"HVA SN:1", "values none", "HVA SN:1: no longer",
                                        "known to the daemon", "", "0.00 [       ] 10.00"}));
}

TEST_F(WatchViewTest, WithoutNewObservationsTheValuesAreOld) {
    view.Add(At(seconds(10), Excerpt(0)));
    now += seconds(3);
    EXPECT_EQ(Lines(80, 24)[4], "values    fresh");
    now += seconds(2);
    EXPECT_EQ(Lines(80, 24)[4], "values    old: the daemon has not answered for 5 s");
    EXPECT_TRUE(view.Render(80, 24, now)[4].alarming);
    EXPECT_EQ(Lines(20, 6)[2], "values old");
}

TEST_F(WatchViewTest, TheScaleCoversAllPositionsSeen) {
    view.Add(At(seconds(0), Excerpt(-500)));
    view.Add(At(seconds(1), Excerpt(2000)));
    view.Add(At(seconds(100), Excerpt(2000)));
    EXPECT_EQ(Lines(45, 14)[6], "-5.00 [###############################] 20.00");
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
    EXPECT_TRUE(view.Render(80, 24, now)[3].alarming);
    EXPECT_FALSE(view.Render(80, 24, now)[4].alarming);
}

TEST_F(WatchViewTest, FrozenValuesAreAlarming) {
    Observation observation = At(seconds(10), Excerpt(0));
    observation.silentSince = Observation::Clock::time_point(seconds(6));
    observation.frozen = true;
    view.Add(observation);
    EXPECT_EQ(Lines(80, 24)[4], "values    frozen: the master has not answered for 4 s");
    EXPECT_TRUE(view.Render(80, 24, now)[4].alarming);
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
