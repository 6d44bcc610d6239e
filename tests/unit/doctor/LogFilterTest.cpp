#include "doctor/log/LogFilter.h"

#include <gtest/gtest.h>

namespace {

using tavrik::LogFilter;
using tavrik::LogRow;

LogRow RowOf(const std::string& gripper, const std::string& node = "") {
    LogRow row;
    row.owner.gripper = gripper;
    row.owner.node = node;
    return row;
}

TEST(LogFilterTest, TakesPartOfANameOrATty) {
    LogFilter part("hva");
    EXPECT_TRUE(part.Wants(RowOf("HVA SN:1")));
    EXPECT_TRUE(part.Wants(RowOf("HVA SN:10")));
    EXPECT_FALSE(part.Wants(RowOf("TLM SN:2")));
    EXPECT_TRUE(LogFilter("ttyACM1").Wants(RowOf("HVA SN:2", "/dev/ttyACM1")));
}

TEST(LogFilterTest, TakesTheWholeNameIfItMustBeExact) {
    LogFilter exact("HVA SN:1", true);
    EXPECT_TRUE(exact.Wants(RowOf("HVA SN:1")));
    EXPECT_FALSE(exact.Wants(RowOf("HVA SN:10")));
}

TEST(LogFilterTest, WantsRowsOfTheDaemonAndThoseThatMayBeOfTheGripper) {
    LogFilter filter("HVA SN:1", true);
    LogRow row;
    row.isOfDaemon = true;
    EXPECT_TRUE(filter.Wants(row));
    row.isOfDaemon = false;
    row.owner.candidates = {"HVA SN:2", "HVA SN:1"};
    EXPECT_TRUE(filter.Wants(row));
    row.owner.candidates = {"HVA SN:2"};
    EXPECT_FALSE(filter.Wants(row));
    EXPECT_FALSE(filter.IsFound({}));
    filter.Wants(RowOf("HVA SN:1"));
    EXPECT_TRUE(filter.IsFound({}));
}

}  // namespace
