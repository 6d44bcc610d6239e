#include "tools/MethodTable.h"

#include <gtest/gtest.h>

#include <set>

namespace tavrikctl {
namespace {

TEST(MethodTableTest, EveryMethodIsThereOnce) {
    std::set<std::string_view> names;
    std::size_t own = 0;
    for (const Method& method : Methods()) {
        EXPECT_TRUE(names.insert(method.name).second) << method.name;
        EXPECT_EQ(FindMethod(method.name), &method);
        own += method.name.starts_with("system.") ? 0 : 1;
    }
    EXPECT_EQ(own, 40U);
}

TEST(MethodTableTest, NamesAreTakenLiterally) {
    EXPECT_EQ(FindMethod("grip"), nullptr);
    EXPECT_EQ(FindMethod(""), nullptr);
}

TEST(MethodTableTest, ACallIsToldInWords) {
    EXPECT_EQ(Usage(*FindMethod("SetReleaseLimit")), "SetReleaseLimit GRIPPER INTEGER NUMBER");
    EXPECT_EQ(Usage(*FindMethod("Holdfast")), "Holdfast GRIPPER on|off");
    EXPECT_EQ(Usage(*FindMethod("GetVersion")), "GetVersion");
    EXPECT_EQ(Usage(*FindMethod("system.methodHelp")), "system.methodHelp TEXT");
    EXPECT_EQ(Usage(*FindMethod("system.multicall")), "system.multicall JSON-ARRAY");
}

}  // namespace
}  // namespace tavrikctl
