#include "pellix/Parameter.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <type_traits>
#include <vector>

using pellix::Parameter;
using Bytes = std::vector<std::uint8_t>;

TEST(ParameterTest, DefaultIsZeroAndEmpty) {
    const Parameter parameter;
    EXPECT_EQ(parameter.GetIndex(), 0);
    EXPECT_EQ(parameter.GetSubindex(), 0);
    EXPECT_TRUE(parameter.GetValue().empty());
}

TEST(ParameterTest, AddressAloneHasAnEmptyValue) {
    const Parameter parameter(19, 2);
    EXPECT_EQ(parameter.GetIndex(), 19);
    EXPECT_EQ(parameter.GetSubindex(), 2);
    EXPECT_TRUE(parameter.GetValue().empty());
}

TEST(ParameterTest, AddressKeepsItsFullRange) {
    const Parameter parameter(std::numeric_limits<int>::max(), std::numeric_limits<int>::min());
    EXPECT_EQ(parameter.GetIndex(), std::numeric_limits<int>::max());
    EXPECT_EQ(parameter.GetSubindex(), std::numeric_limits<int>::min());
}

TEST(ParameterTest, ValueIsCopiedIn) {
    Bytes bytes{0, 10, 255};
    const Parameter parameter(19, 0, bytes);
    bytes[0] = 7;
    EXPECT_EQ(parameter.GetValue(), (Bytes{0, 10, 255}));
}

TEST(ParameterTest, ChangingTheReturnedValueDoesNotChangeTheRecord) {
    const Parameter parameter(19, 0, {1, 2});
    Bytes bytes = parameter.GetValue();
    bytes[0] = 9;
    bytes.push_back(3);
    EXPECT_EQ(parameter.GetValue(), (Bytes{1, 2}));
}

TEST(ParameterTest, ReplacingCopiesTheWholeValue) {
    Parameter parameter(19, 0, {1, 2, 3});
    Bytes bytes{4};
    parameter.SetValue(bytes);
    bytes[0] = 5;
    EXPECT_EQ(parameter.GetValue(), Bytes{4});
}

TEST(ParameterTest, ReplacingWithNoBytesLeavesAnEmptyValue) {
    Parameter parameter(19, 0, {1, 2, 3});
    parameter.SetValue({});
    EXPECT_TRUE(parameter.GetValue().empty());
}

TEST(ParameterTest, IsDestroyedThroughItsBase) {
    EXPECT_TRUE(std::has_virtual_destructor_v<Parameter>);
}
