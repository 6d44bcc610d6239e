#include "client/Values.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "tests/unit/client/ExpectFailure.h"

namespace tavrik {
namespace {

using Json = nlohmann::ordered_json;

TEST(ValueTextTest, IntegersHave32Bits) {
    EXPECT_EQ(ParseInteger("-2147483648"), -2147483647 - 1);
    EXPECT_EQ(ParseInteger("255"), 255);
    for (const char* const wrong : {"", "1.0", "1 ", " 1", "0x10", "2147483648", "one"}) {
        EXPECT_FAILURE(ParseInteger(wrong), Usage,
                       ("'" + std::string(wrong) + "' is not an integer").c_str());
    }
}

TEST(ValueTextTest, RealNumbersHaveADecimalPoint) {
    EXPECT_EQ(ParseReal("-12.5"), -12.5);
    EXPECT_EQ(ParseReal("5"), 5.0);
    EXPECT_FAILURE(ParseReal("12,5"), Usage, "'12,5' is not a number");
    for (const char* const wrong : {"", "nan", "inf", "-inf", "1e999"}) {
        EXPECT_FAILURE(ParseReal(wrong), Usage,
                       ("'" + std::string(wrong) + "' is not a number").c_str());
    }
}

TEST(ValueTextTest, BooleansHaveSynonyms) {
    for (const char* const text : {"on", "true", "yes", "1"}) {
        EXPECT_TRUE(ParseBoolean(text)) << text;
    }
    for (const char* const text : {"off", "false", "no", "0"}) {
        EXPECT_FALSE(ParseBoolean(text)) << text;
    }
    EXPECT_FAILURE(ParseBoolean("2"), Usage, "'2' is neither on nor off");
}

TEST(ValueTextTest, InvalidTextIsShownWithoutControlCharacters) {
    EXPECT_FAILURE(ParseInteger("\x1b[2J"), Usage, "'?[2J' is not an integer");
}

TEST(ValueTextTest, HundredthsHaveTwoDecimals) {
    EXPECT_EQ(HundredthsText(7.139999999999999), "7.14");
    EXPECT_EQ(HundredthsText(0), "0.00");
    EXPECT_EQ(HundredthsText(-327.68), "-327.68");
    EXPECT_EQ(HundredthsText(-1e300).size(), 305U);  // no digit of a lying server's is cut
}

TEST(JsonValueTest, EveryReplyTypeConvertsToJson) {
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

TEST(JsonValueTest, PositionsAreRoundedToHundredths) {
    EXPECT_EQ(ToJson(xmlrpc_c::value_double(7.139999999999999)).dump(), "7.14");
    EXPECT_EQ(ToJson(xmlrpc_c::value_double(-327.68)).dump(), "-327.68");
}

TEST(JsonValueTest, EveryParameterTypeSurvivesARoundTrip) {
    const Json json = Json::parse(R"([1, -2.5, true, "x", null, {"y": [2]}, []])");
    EXPECT_EQ(ToJson(ToValue(json)), json);
}

TEST(JsonValueTest, AnIntegerBeyond32BitsIsRejected) {
    EXPECT_THROW(ToValue(Json(2147483648LL)), std::out_of_range);
    EXPECT_THROW(ToValue(Json(-2147483649LL)), std::out_of_range);
    EXPECT_THROW(ToValue(Json(18446744073709551615ULL)), std::out_of_range);
    EXPECT_EQ(xmlrpc_c::value_int(ToValue(Json(2147483647))).cvalue(), 2147483647);
}

}  // namespace
}  // namespace tavrik
