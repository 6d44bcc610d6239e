#include "web/Metrics.h"

#include <gtest/gtest.h>

namespace {

using std::chrono::milliseconds;
using tavrik::Cell;
using tavrik::ProcessData;

bool Has(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

class MetricsTest : public testing::Test {
protected:
    std::string Format() const {
        return tavrik::FormatMetrics(cell, statistics, 3, start + milliseconds(250));
    }

    const tavrik::CellGripper::TimePoint start{};
    Cell cell;
    tavrik::Statistics statistics;
};

TEST_F(MetricsTest, WithoutDaemonThereIsOnlyThat) {
    EXPECT_TRUE(Has(Format(), "\ntavrik_daemon_up 0\n"));
    EXPECT_FALSE(Has(Format(), "tavrik_daemon_info"));
    EXPECT_TRUE(Has(Format(), "\ntavrik_web_viewers 3\n"));
}

TEST_F(MetricsTest, TellsWhatAGripperReports) {
    cell.reachable = true;
    cell.version = "2.2.4 (abc)";
    cell.UpdateList({"HVA SN:1"});
    cell.Find("HVA SN:1")->Update(ProcessData(0x48e204), start);
    const std::string text = Format();
    for (const char* const line :
         {"tavrik_daemon_up 1", R"x(tavrik_daemon_info{version="2.2.4 (abc)"} 1)x",
          "tavrik_grippers 1", R"x(tavrik_gripper_up{gripper="HVA SN:1"} 1)x",
          R"x(tavrik_gripper_position{gripper="HVA SN:1"} 12.5)x",
          R"x(tavrik_gripper_state{gripper="HVA SN:1"} 8)x",
          R"x(tavrik_gripper_temperature_warning{gripper="HVA SN:1"} 1)x",
          R"x(tavrik_gripper_fault{gripper="HVA SN:1"} 0)x",
          R"x(tavrik_gripper_data_age_seconds{gripper="HVA SN:1"} 0.25)x"}) {
        EXPECT_TRUE(Has(text, std::string("\n") + line + "\n")) << line;
    }
}

TEST_F(MetricsTest, LeavesOutValuesThatWereReadLongAgo) {
    cell.reachable = true;
    cell.UpdateList({"HVA SN:1"});
    cell.Find("HVA SN:1")->Update(ProcessData(0x48e204), start - std::chrono::hours(1));
    EXPECT_FALSE(Has(Format(), "tavrik_gripper_position{"));
    cell.Find("HVA SN:1")->Update(ProcessData(0x48e204), start);
    EXPECT_TRUE(Has(Format(), "tavrik_gripper_position{"));
}

TEST_F(MetricsTest, AGoneGripperHasOnlyItsUp) {
    cell.reachable = true;
    cell.UpdateList({"A"});
    cell.Find("A")->Update(ProcessData(1), start);
    cell.UpdateList({});
    EXPECT_TRUE(Has(Format(), "\ntavrik_gripper_up{gripper=\"A\"} 0\n"));
    EXPECT_TRUE(Has(Format(), "\ntavrik_grippers 0\n"));
    EXPECT_FALSE(Has(Format(), "tavrik_gripper_state{"));
}

TEST_F(MetricsTest, TwoGrippersWithOneNameHaveOneSeries) {
    cell.reachable = true;
    cell.UpdateList({"A", "A"});
    const std::string text = Format();
    const auto first = text.find("tavrik_gripper_up{");
    EXPECT_EQ(text.find("tavrik_gripper_up{", first + 1), std::string::npos);
    EXPECT_TRUE(Has(text, "\ntavrik_grippers 2\n"));
}

TEST_F(MetricsTest, NamesCannotEndALabel) {
    cell.UpdateList({"a\"} 1\nb\\"});
    EXPECT_TRUE(Has(Format(), R"(tavrik_gripper_up{gripper="a\"} 1\nb\\"} 1)"));
}

TEST_F(MetricsTest, CountsCommandsWithTheirTimes) {
    cell.UpdateList({"A"});
    cell.Find("A")->Update(ProcessData(1), start);
    statistics.Add("A", 0, milliseconds(20));
    statistics.Add("A", 3, milliseconds(40));
    statistics.Add("A", 5, milliseconds(1000));
    const std::string text = Format();
    for (const char* const line :
         {R"x(tavrik_gripper_refusals_total{gripper="A",code="3"} 1)x",
          R"x(tavrik_gripper_timeouts_total{gripper="A"} 1)x",
          R"x(tavrik_gripper_call_duration_seconds_bucket{gripper="A",le="0.01"} 0)x",
          R"x(tavrik_gripper_call_duration_seconds_bucket{gripper="A",le="0.025"} 1)x",
          R"x(tavrik_gripper_call_duration_seconds_bucket{gripper="A",le="+Inf"} 3)x",
          R"x(tavrik_gripper_call_duration_seconds_sum{gripper="A"} 1.06)x",
          R"x(tavrik_gripper_call_duration_seconds_count{gripper="A"} 3)x"}) {
        EXPECT_TRUE(Has(text, std::string("\n") + line + "\n")) << line;
    }
}

}  // namespace
