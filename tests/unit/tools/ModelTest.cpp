#include "tools/Model.h"

#include <gtest/gtest.h>

namespace tavrikctl {
namespace {

std::string Narrowed(const std::string& told, const std::string& deviceString) {
    const Model model = NarrowModel(told, deviceString);
    return model.Text() + " (" + model.from + ")";
}

TEST(ModelTest, TheNameDecidesWhatAnswersLeaveOpen) {
    EXPECT_EQ(Narrowed("HVA or MZD", "HVA SN:1"), "HVA by name (name)");
    EXPECT_EQ(Narrowed("HVA or MZD", "MZD-S SN:1"), "MZD by name (name)");
    EXPECT_EQ(Narrowed("TLM?", "TLM SN:1"), "TLM by name (name)");
    EXPECT_EQ(Narrowed("TLM?", "HVA SN:1"), "HVA by name (name)");
    EXPECT_EQ(Narrowed("?", "MZD-L SN:1"), "MZD by name (name)");
}

TEST(ModelTest, ANameThatAnswersDenyIsNotBelieved) {
    EXPECT_EQ(Narrowed("MZD", "HVA SN:1"), "MZD (answers)");
    EXPECT_EQ(Narrowed("HVA or MZD", "TLM SN:1"), "HVA or MZD (answers)");
}

TEST(ModelTest, WhatAnswersTellNeedsNoName) {
    EXPECT_EQ(Narrowed("MZD", "MZD-S SN:1"), "MZD (answers)");
    EXPECT_EQ(Narrowed("HVA or MZD", "4711 HVA"), "HVA or MZD (answers)");
    EXPECT_EQ(Narrowed("TLM?", "4711"), "TLM? (answers)");
    EXPECT_EQ(Narrowed("?", "4711"), "? (nothing)");
}

}  // namespace
}  // namespace tavrikctl
