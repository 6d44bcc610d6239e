#include "client/MethodTable.h"

#include <gtest/gtest.h>

#include "tests/unit/client/ExpectFailure.h"

#include <set>

namespace tavrik {
namespace {

TEST(MethodTableTest, EveryMethodIsListedOnce) {
    std::set<std::string_view> names;
    std::size_t own = 0;
    for (const Method& method : Methods()) {
        EXPECT_TRUE(names.insert(method.name).second) << method.name;
        EXPECT_EQ(FindMethod(method.name), &method);
        own += method.name.starts_with("system.") ? 0 : 1;
    }
    EXPECT_EQ(own, 40U);
}

TEST(MethodTableTest, NamesAreCaseSensitive) {
    EXPECT_EQ(FindMethod("grip"), nullptr);
    EXPECT_EQ(FindMethod(""), nullptr);
}

TEST(MethodTableTest, UsageNamesTheParameters) {
    EXPECT_EQ(Usage(*FindMethod("SetReleaseLimit")), "SetReleaseLimit GRIPPER INTEGER NUMBER");
    EXPECT_EQ(Usage(*FindMethod("Holdfast")), "Holdfast GRIPPER on|off");
    EXPECT_EQ(Usage(*FindMethod("GetVersion")), "GetVersion");
    EXPECT_EQ(Usage(*FindMethod("system.methodHelp")), "system.methodHelp TEXT");
    EXPECT_EQ(Usage(*FindMethod("system.multicall")), "system.multicall JSON-ARRAY");
}

TEST(MethodTableTest, TheLetterOfAParameterDecidesItsType) {
    EXPECT_EQ(xmlrpc_c::value_int(ParseArgument('i', "7")).cvalue(), 7);
    EXPECT_EQ(xmlrpc_c::value_double(ParseArgument('d', "7")).cvalue(), 7.0);
    EXPECT_TRUE(xmlrpc_c::value_boolean(ParseArgument('b', "on")).cvalue());
    EXPECT_EQ(xmlrpc_c::value_string(ParseArgument('g', "7")).cvalue(), "7");
    EXPECT_EQ(xmlrpc_c::value_string(ParseArgument('s', "on")).cvalue(), "on");
    EXPECT_EQ(xmlrpc_c::value_array(ParseArgument('a', "[7, \"x\"]")).size(), 2U);
}

TEST(MethodTableTest, TextIsUtf8) {
    EXPECT_FAILURE(ParseArgument('g', "a\xff"), Usage, "'a?' is not UTF-8");
}

TEST(MethodTableTest, AnArrayIsJson) {
    EXPECT_FAILURE(ParseArgument('a', "7"), Usage, "'7' is not a JSON array");
    EXPECT_FAILURE(ParseArgument('a', "[7"), Usage, "'[7' is not a JSON array");
    EXPECT_FAILURE(ParseArgument('a', "[3000000000]"), Usage,
                   "invalid argument '[3000000000]': an integer exceeds 32 bits");
}

}  // namespace
}  // namespace tavrik
