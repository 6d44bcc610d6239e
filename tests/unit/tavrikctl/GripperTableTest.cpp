#include "tavrikctl/GripperTable.h"

#include <gtest/gtest.h>

#include "client/Printable.h"

namespace tavrik {
namespace {

using Texts = std::vector<std::string>;

GripperRow Row(const std::string& name) {
    return {name, "1", "10.00", "none", "fresh", "0 s", 0.5, false};
}

TEST(GripperTableTest, TheBarFillsTheLine) {
    const GripperTable table = LayOut({Row("HVA SN:1"), Row("TLM SN:2")}, 65);
    EXPECT_EQ(table.titles, "GRIPPER   STATE  POSITION  FLAGS  VALUES  AGE  RANGE SO FAR      ");
    EXPECT_EQ(table.rows, (Texts{
                              "HVA SN:1      1     10.00  none   fresh   0 s  [########        ]",
                              "TLM SN:2      1     10.00  none   fresh   0 s  [########        ]",
                          }));
}

TEST(GripperTableTest, ColumnsAreLeftOutInTheOrderOfNeed) {
    const std::vector<GripperRow> rows{Row("HVA SN:1")};
    const std::string line = "HVA SN:1      1     10.00  none   fresh   0 s";
    EXPECT_EQ(LayOut(rows, 58).rows.front(), line);
    EXPECT_EQ(LayOut(rows, 45).rows.front(), line);
    EXPECT_EQ(LayOut(rows, 44).rows.front(), "HVA SN:1      1     10.00  none   fresh ");
    EXPECT_EQ(LayOut(rows, 39).rows.front(), "HVA SN:1      1     10.00  none ");
    EXPECT_EQ(LayOut(rows, 31).rows.front(), "1            1     10.00  none ");
    EXPECT_EQ(LayOut(rows, 30).titles, "");
    EXPECT_EQ(LayOut(rows, 30).rows.front(), "1 1 10.00 none");
    EXPECT_EQ(LayOut(rows, 13).rows.front(), "1 1 10.00 ");
}

TEST(GripperTableTest, WhatIsWrongIsShownAtEveryWidth) {
    GripperRow row = Row("HVA SN:1");
    row.values = "frozen";
    row.alarming = true;
    EXPECT_EQ(LayOut({row}, 35).rows.front(), "HVA SN:1      1     10.00  frozen");
    row.flags = "fault, temperature fault";
    EXPECT_EQ(LayOut({row}, 45).rows.front(), "1 1 10.00 fault, temperature fault, frozen");
    EXPECT_EQ(LayOut({row}, 20).rows.front(), "1 1 10.00 !");
}

TEST(GripperTableTest, WithoutProcessDataTheReasonReplacesTheFlags) {
    GripperRow row = Row("HVA SN:1");
    row.flags = "-";
    row.values = "none";
    EXPECT_EQ(LayOut({row}, 39).rows.front(), "HVA SN:1      1     10.00  none ");
}

TEST(GripperTableTest, LongSerialNumbersBecomePlaces) {
    EXPECT_EQ(LayOut({Row("HVA SN:12345678901234567890"), Row("a SN:2")}, 20).rows,
              (Texts{"#1 1 10.00 none", "#2 1 10.00 none"}));
}

TEST(GripperTableTest, WideCharactersKeepTheColumnsStraight) {
    const GripperTable table = LayOut({Row("\xe4\xb8\xad SN:1"), Row("HVA SN:2")}, 60);
    EXPECT_EQ(Width(table.rows[0]), Width(table.rows[1]));
    EXPECT_EQ(table.rows[0].substr(0, 16), "\xe4\xb8\xad SN:1       1");
}

}  // namespace
}  // namespace tavrik
