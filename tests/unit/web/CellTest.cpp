#include "web/Cell.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

namespace {

using std::chrono::milliseconds;
using tavrik::Cell;
using tavrik::ProcessData;

constexpr int kAtTen = 0x08e803;     // position 10.00, state 8
constexpr int kAtTwenty = 0x08d007;  // position 20.00, state 8
constexpr int kFaulty = 0x9f0000;    // state 15, fault and maintenance

const tavrik::CellGripper::TimePoint kStart{};

TEST(CellTest, ListsEachNameOnceAndCountsItsCopies) {
    Cell cell;
    EXPECT_TRUE(cell.UpdateList({"A", "B", "A"}));
    ASSERT_EQ(cell.grippers.size(), 2U);
    EXPECT_EQ(cell.Find("A")->copies, 2U);
    EXPECT_EQ(cell.Find("B")->copies, 1U);
    EXPECT_FALSE(cell.UpdateList({"B", "A", "A"}));
    EXPECT_TRUE(cell.UpdateList({"B", "A"}));
}

TEST(CellTest, KeepsAGoneGripperWithoutDataAndMotionsWhenItComesBack) {
    Cell cell;
    cell.UpdateList({"A", "B"});
    cell.Find("A")->Update(ProcessData(kAtTen), kStart);
    cell.Find("A")->Update(ProcessData(kAtTwenty), kStart);
    EXPECT_TRUE(cell.UpdateList({"B"}));
    EXPECT_EQ(cell.grippers.back().device, "A");
    EXPECT_FALSE(cell.Find("A")->IsListed());
    EXPECT_FALSE(cell.Find("A")->data);
    EXPECT_TRUE(cell.UpdateList({"B", "A"}));
    EXPECT_EQ(cell.Find("A")->motions, 1U);
}

TEST(CellTest, ForgetsGrippersThatAreGoneWhenThereAreTooMany) {
    Cell cell;
    for (int i = 0; i < 200; ++i) {
        cell.UpdateList({"gripper " + std::to_string(i)});
    }
    EXPECT_EQ(cell.grippers.size(), 65U);
    EXPECT_EQ(cell.grippers.front().device, "gripper 199");
}

TEST(CellTest, CountsAMotionOnceHoweverOftenItIsRead) {
    Cell cell;
    cell.UpdateList({"A"});
    for (const int position : {0x01, 0x02, 0x03, 0x03, 0x05}) {  // times 2.56
        cell.Find("A")->Update(ProcessData(0x080000 + position), kStart);
    }
    EXPECT_EQ(cell.Find("A")->motions, 2U);
}

TEST(CellTest, HasARowForEachGripper) {
    Cell cell;
    cell.UpdateList({"A", "B", "C"});
    cell.Find("A")->Update(ProcessData(kAtTen), kStart);
    cell.Find("C")->Update(ProcessData(kFaulty), kStart + milliseconds(100));
    EXPECT_EQ(cell.Values(kStart + milliseconds(250)).dump(),
              "[[10.0,8,0,250,0],null,[0.0,15,9,150,0]]");
}

TEST(CellTest, TheDataOfASilentMasterIsAsOldAsItsSilence) {
    Cell cell;
    cell.UpdateList({"A"});
    cell.Find("A")->Update(ProcessData(kAtTen), kStart + milliseconds(5000));
    cell.Find("A")->silentSince = kStart + milliseconds(2000);
    EXPECT_EQ(cell.Values(kStart + milliseconds(5100)).dump(), "[[10.0,8,0,3100,0]]");
}

TEST(CellTest, TellsThatZerosMayMeanNoProcessData) {
    Cell cell;
    cell.UpdateList({"A"});
    cell.Find("A")->Update(ProcessData(0), kStart);
    EXPECT_EQ(cell.Values(kStart).dump(), "[[0.0,0,16,0,0]]");
}

TEST(CellTest, HasNoDataWithoutDaemon) {
    Cell cell;
    cell.reachable = true;
    cell.UpdateList({"A"});
    cell.Find("A")->Update(ProcessData(kAtTen), kStart);
    cell.MarkUnreachable("refused");
    EXPECT_FALSE(cell.reachable);
    EXPECT_EQ(cell.Json()["error"], "refused");
    EXPECT_EQ(cell.Values(kStart).dump(), "[null]");
}

}  // namespace
