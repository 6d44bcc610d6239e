#include "simulator/LineAssembler.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace simulator {
namespace {

using Lines = std::vector<std::string>;

TEST(LineAssemblerTest, ALineComesWithItsLastPiece) {
    LineAssembler assembler;
    EXPECT_EQ(assembler.Add("ID"), Lines());
    EXPECT_TRUE(assembler.InsideLine());
    EXPECT_EQ(assembler.Add("?\nMODE?\n\nP"), (Lines{"ID?", "MODE?", ""}));
    EXPECT_TRUE(assembler.InsideLine());
    EXPECT_EQ(assembler.Add("\n"), Lines{"P"});
    EXPECT_FALSE(assembler.InsideLine());
}

TEST(LineAssemblerTest, AnOverlongLineIsDroppedWhole) {
    LineAssembler assembler;
    EXPECT_EQ(assembler.Add(std::string(1024, 'a') + "\n"), Lines{std::string(1024, 'a')});
    EXPECT_EQ(assembler.Add(std::string(1025, 'a')), Lines());
    EXPECT_TRUE(assembler.InsideLine());
    EXPECT_EQ(assembler.Add("b\nc\n"), Lines{"c"});
}

TEST(LineAssemblerTest, WhatWasBegunCanBeForgotten) {
    LineAssembler assembler;
    assembler.Add(std::string(1025, 'a'));
    assembler.Clear();
    EXPECT_FALSE(assembler.InsideLine());
    EXPECT_EQ(assembler.Add("b\n"), Lines{"b"});
}

}  // namespace
}  // namespace simulator
