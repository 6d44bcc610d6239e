#include "tavrikctl/CellView.h"

#include <gtest/gtest.h>

namespace tavrik {
namespace {

using std::chrono::seconds;

class CellViewTest : public testing::Test {
protected:
    void Add(const std::string& gripper, int excerpt, seconds time = seconds(60)) {
        view.Add(At(gripper, excerpt, time));
    }

    static Observation At(const std::string& gripper, int excerpt, seconds time) {
        Observation observation;
        observation.gripper = gripper;
        observation.time = Observation::Clock::time_point(time);
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

    CellView view{"localhost:44221"};
    Observation::Clock::time_point now{seconds(60)};
};

constexpr int kTenMillimetres = 0x01e803;  // in state 1
constexpr int kFaulty = 0x11e803;

TEST_F(CellViewTest, WithoutAnObservationItWaits) {
    EXPECT_EQ(Lines(40, 24), (std::vector<std::string>{"waiting for the daemon   localhost:44221",
                                                       "", "", "q: quit"}));
}

TEST_F(CellViewTest, EachGripperHasARow) {
    Add("HVA SN:1", kTenMillimetres);
    Add("TLM SN:2", kFaulty);
    Add("HVA SN:1", 0, seconds(59));
    EXPECT_EQ(Lines(60, 24), (std::vector<std::string>{
                                 "2 grippers                                   localhost:44221",
                                 "",
                                 "GRIPPER   STATE  POSITION  FLAGS  VALUES  AGE  RANGE SO FAR ",
                                 "HVA SN:1      0      0.00  none   zero    1 s  [           ]",
                                 "TLM SN:2      1     10.00  fault  fresh   0 s  [###########]",
                                 "",
                                 "q: quit",
                             }));
    EXPECT_FALSE(view.Render(60, 24, now)[3].alarming);
    EXPECT_TRUE(view.Render(60, 24, now)[4].alarming);
}

TEST_F(CellViewTest, OnALowScreenAlarmingGrippersAreShown) {
    for (const char* const name : {"HVA SN:1", "TLM SN:2", "HVA SN:3"}) {
        Add(name, kTenMillimetres);
    }
    Add("MZD SN:4", kFaulty);
    EXPECT_EQ(Lines(40, 4).front(), "HVA SN:1      1     10.00  none   fresh ");
    EXPECT_EQ(Lines(40, 3),
              (std::vector<std::string>{"MZD SN:4      1     10.00  fault  fresh ",
                                        "HVA SN:1      1     10.00  none   fresh ", "2 more"}));
    EXPECT_EQ(Lines(40, 5).front(), "GRIPPER   STATE  POSITION  FLAGS  VALUES");
    EXPECT_EQ(Lines(40, 6).front(), "4 grippers               localhost:44221");
    EXPECT_EQ(Lines(40, 7).back(), "q: quit");
    EXPECT_TRUE(Lines(40, 0).empty());
}

TEST_F(CellViewTest, TheAgeOfFrozenValuesCountsFromTheLastAnswer) {
    Observation observation = At("HVA SN:1", kTenMillimetres, seconds(60));
    observation.silentSince = Observation::Clock::time_point(seconds(48));
    view.Add(observation);
    EXPECT_EQ(Lines(50, 24)[3], "HVA SN:1      1     10.00  none   silent  0 s");
    observation.frozen = true;
    view.Add(observation);
    EXPECT_EQ(Lines(50, 24)[3], "HVA SN:1      1     10.00  none   frozen  12 s");
    EXPECT_TRUE(view.Render(50, 24, now)[3].alarming);
}

TEST_F(CellViewTest, WithoutNewObservationsTheValuesAreOld) {
    Add("HVA SN:1", kTenMillimetres);
    now += seconds(4);
    EXPECT_EQ(Lines(50, 24)[3], "HVA SN:1      1     10.00  none   old     4 s");
    EXPECT_TRUE(view.Render(50, 24, now)[3].alarming);
}

TEST_F(CellViewTest, TheAgeIsUnknownIfTheMasterWasNotAsked) {
    Observation observation = At("HVA SN:1", kTenMillimetres, seconds(60));
    observation.probed = false;
    view.Add(observation);
    EXPECT_EQ(Lines(50, 24)[3], "HVA SN:1      1     10.00  none   unasked    ?");
}

TEST_F(CellViewTest, EqualReasonsAreShownOnce) {
    for (const char* const name : {"HVA SN:1", "TLM SN:2"}) {
        Observation observation = At(name, 0, seconds(60));
        observation.data.reset();
        observation.error = "localhost:44221 cannot be reached";
        view.Add(observation);
    }
    EXPECT_EQ(Lines(50, 24), (std::vector<std::string>{
                                 "2 grippers                         localhost:44221",
                                 "",
                                 "GRIPPER   STATE  POSITION  FLAGS  VALUES  AGE",
                                 "HVA SN:1      -         -  -      none      ?",
                                 "TLM SN:2      -         -  -      none      ?",
                                 "",
                                 "localhost:44221 cannot be reached",
                                 "",
                                 "q: quit",
                             }));
}

}  // namespace
}  // namespace tavrik
