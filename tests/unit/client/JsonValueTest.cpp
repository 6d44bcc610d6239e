#include "client/JsonValue.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

namespace tavrik {
namespace {

using Json = nlohmann::ordered_json;

TEST(JsonValueTest, EveryTypeOfAnAnswerHasItsJson) {
    EXPECT_EQ(ToJson(xmlrpc_c::value_int(-7)), Json(-7));
    EXPECT_EQ(ToJson(xmlrpc_c::value_i8(-2147483648LL)), Json(-2147483648LL));
    EXPECT_EQ(ToJson(xmlrpc_c::value_boolean(true)), Json(true));
    EXPECT_EQ(ToJson(xmlrpc_c::value_string("a\"b")).dump(), R"("a\"b")");
    EXPECT_EQ(ToJson(xmlrpc_c::value_nil()), Json(nullptr));
    EXPECT_EQ(ToJson(xmlrpc_c::value_array(xmlrpc_c::carray{xmlrpc_c::value_int(1)})),
              Json::parse("[1]"));
    EXPECT_EQ(ToJson(xmlrpc_c::value_struct({{"x", xmlrpc_c::value_int(1)}})),
              Json::parse(R"({"x": 1})"));
}

TEST(JsonValueTest, PositionsComeBackToTheirHundredths) {
    EXPECT_EQ(ToJson(xmlrpc_c::value_double(7.139999999999999)).dump(), "7.14");
    EXPECT_EQ(ToJson(xmlrpc_c::value_double(-327.68)).dump(), "-327.68");
}

TEST(JsonValueTest, AParameterOfAnyTypeComesThrough) {
    const Json json = Json::parse(R"([1, -2.5, true, "x", null, {"y": [2]}, []])");
    EXPECT_EQ(ToJson(ToValue(json)), json);
}

TEST(JsonValueTest, AnIntegerBeyond32BitsIsRefused) {
    EXPECT_THROW(ToValue(Json(2147483648LL)), std::out_of_range);
    EXPECT_THROW(ToValue(Json(-2147483649LL)), std::out_of_range);
    EXPECT_THROW(ToValue(Json(18446744073709551615ULL)), std::out_of_range);
    EXPECT_EQ(xmlrpc_c::value_int(ToValue(Json(2147483647))).cvalue(), 2147483647);
}

}  // namespace
}  // namespace tavrik
