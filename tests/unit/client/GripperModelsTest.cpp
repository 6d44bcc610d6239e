#include "client/GripperModels.h"

#include <gtest/gtest.h>

namespace tavrik {
namespace {

TEST(GripperModelsTest, EachNameIsListedOnce) {
    EXPECT_EQ(ModelsWith(Feature::None, ", "), "TLM, HVA, MZD");
    EXPECT_EQ(ModelsWith(Feature::ForceAndReference, " and "), "HVA and MZD");
    EXPECT_EQ(ModelsWith(Feature::LedsAndHoldfast, " and "), "MZD");
}

TEST(GripperModelsTest, AModelThatIsNotKnownMayHaveAllFeatures) {
    EXPECT_TRUE(MayHave("TLM", Feature::None));
    EXPECT_FALSE(MayHave("TLM", Feature::ForceAndReference));
    EXPECT_FALSE(MayHave("HVA", Feature::LedsAndHoldfast));
    EXPECT_TRUE(MayHave("HVA or MZD", Feature::LedsAndHoldfast));
    EXPECT_TRUE(MayHave("TLM?", Feature::ForceAndReference));
    EXPECT_TRUE(MayHave("XYZ", Feature::LedsAndHoldfast));
}

TEST(GripperModelsTest, AnAmbiguousModelMayLackWhatOneOfThemLacks) {
    EXPECT_TRUE(MayLack("HVA or MZD", Feature::LedsAndHoldfast));
    EXPECT_FALSE(MayLack("HVA or MZD", Feature::ForceAndReference));
    EXPECT_TRUE(MayLack("TLM?", Feature::ForceAndReference));
    EXPECT_FALSE(MayLack("TLM?", Feature::None));
    EXPECT_FALSE(MayLack("MZD", Feature::LedsAndHoldfast));
}

std::string Narrowed(const std::string& byAnswers, const std::string& deviceString) {
    const ModelGuess model = NarrowModel(byAnswers, deviceString);
    return model.Text() + " (" + model.from + ")";
}

TEST(NarrowModelTest, TheNameDecidesAmbiguousAnswers) {
    EXPECT_EQ(Narrowed("HVA or MZD", "HVA SN:1"), "HVA by name (name)");
    EXPECT_EQ(Narrowed("HVA or MZD", "MZD-S SN:1"), "MZD by name (name)");
    EXPECT_EQ(Narrowed("TLM?", "TLM SN:1"), "TLM by name (name)");
    EXPECT_EQ(Narrowed("TLM?", "HVA SN:1"), "HVA by name (name)");
    EXPECT_EQ(Narrowed("?", "MZD-L SN:1"), "MZD by name (name)");
}

TEST(NarrowModelTest, ANameThatContradictsTheAnswersIsIgnored) {
    EXPECT_EQ(Narrowed("MZD", "HVA SN:1"), "MZD (answers)");
    EXPECT_EQ(Narrowed("HVA or MZD", "TLM SN:1"), "HVA or MZD (answers)");
}

TEST(NarrowModelTest, UnambiguousAnswersNeedNoName) {
    EXPECT_EQ(Narrowed("MZD", "MZD-S SN:1"), "MZD (answers)");
    EXPECT_EQ(Narrowed("HVA or MZD", "4711 HVA"), "HVA or MZD (answers)");
    EXPECT_EQ(Narrowed("TLM?", "4711"), "TLM? (answers)");
    EXPECT_EQ(Narrowed("?", "4711"), "? (nothing)");
}

}  // namespace
}  // namespace tavrik
