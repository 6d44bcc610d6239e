#include "client/SettingTable.h"

#include <gtest/gtest.h>

#include "client/MethodTable.h"
#include "tests/unit/client/ExpectFailure.h"

namespace tavrik {
namespace {

TEST(SettingTableTest, MethodsTakeThePlaceAndKindOfTheSetting) {
    for (const Setting& setting : Settings()) {
        const std::string place = setting.place == Setting::Place::Gripper ? "g" : "gi";
        const std::string value = setting.kind == Setting::Kind::Flag    ? "b"
                                  : setting.kind == Setting::Kind::Limit ? "d"
                                                                         : "i";
        if (!setting.getter.empty()) {
            EXPECT_EQ(FindMethod(setting.getter)->parameters, place) << setting.name;
        }
        if (!setting.setter.empty()) {
            EXPECT_EQ(FindMethod(setting.setter)->parameters, place + value) << setting.name;
            EXPECT_TRUE(FindMethod(setting.setter)->answersStatus) << setting.name;
        }
    }
}

TEST(SettingTableTest, AnUnknownSettingIsRejected) {
    EXPECT_EQ(FindSetting("force").getter, "GetForce");
    const std::string list =
        " settings: force, no-part-limit, release-limit, override-grip, override-release, "
        "reference-direction, led-animation, led-color, led-speed, led-preset, checksum";
    EXPECT_FAILURE(FindSetting("power"), Usage, ("unknown setting 'power';" + list).c_str());
    EXPECT_FAILURE(FindSetting("forces"), Usage,
                   ("unknown setting 'forces'; did you mean 'force'?" + list).c_str());
}

TEST(SettingTableTest, TheModelsAreThoseOfTheMethods) {
    EXPECT_EQ(SupportedModels(FindSetting("force")), "HVA, MZD");
    EXPECT_EQ(SupportedModels(FindSetting("no-part-limit")), "all models");
    EXPECT_EQ(SupportedModels(FindSetting("override-grip")), "HVA, MZD; read: all");
    EXPECT_EQ(SupportedModels(FindSetting("led-preset")), "MZD; cannot be read");
    EXPECT_EQ(SupportedModels(FindSetting("checksum")), "all models; cannot be set");
}

TEST(SettingTableTest, ValuesOutOfRangeAreRejected) {
    const Setting& force = FindSetting("force");
    EXPECT_EQ(xmlrpc_c::value_int(ParseSetting(force, "255")).cvalue(), 255);
    EXPECT_FAILURE(ParseSetting(force, "256"), Usage, "invalid force '256': must be 0 to 255");
    EXPECT_FAILURE(ParseSetting(force, "-1"), Usage, "invalid force '-1': must be 0 to 255");
    EXPECT_FAILURE(ParseSetting(FindSetting("led-preset"), "8"), Usage,
                   "invalid led-preset '8': must be 0 to 7");
    const Setting& limit = FindSetting("no-part-limit");
    for (const char* const wrong : {"327.68", "-327.69"}) {
        EXPECT_FAILURE(
            ParseSetting(limit, wrong), Usage,
            ("invalid no-part-limit '" + std::string(wrong) + "': must be -327.68 to 327.67")
                .c_str());
    }
    EXPECT_TRUE(
        xmlrpc_c::value_boolean(ParseSetting(FindSetting("reference-direction"), "on")).cvalue());
}

TEST(SettingTableTest, TheTextIsTheValueTheGripperGets) {
    const Setting& limit = FindSetting("release-limit");
    EXPECT_EQ(SettingText(limit, "12.346"), "12.35");
    EXPECT_EQ(SettingText(limit, "-12.346"), "-12.35");
    EXPECT_EQ(SettingText(limit, "1e2"), "100.00");
    EXPECT_EQ(SettingText(limit, "-0.004"), "0.00");
    EXPECT_EQ(SettingText(FindSetting("force"), "060"), "60");
    EXPECT_EQ(SettingText(FindSetting("reference-direction"), "yes"), "on");
}

/// As the daemon does it.
int EncodedLimit(double limit) {
    return static_cast<int>(limit * 100 + 0.5);  // NOLINT(bugprone-incorrect-roundings)
}

TEST(SettingTableTest, EveryLimitArrivesAsTyped) {
    for (int hundredths = -32768; hundredths <= 32767; ++hundredths) {
        ASSERT_EQ(EncodedLimit(LimitToSend(hundredths / 100.0)), hundredths);
    }
    EXPECT_EQ(EncodedLimit(LimitToSend(-1.994)), -199);
    EXPECT_EQ(EncodedLimit(LimitToSend(-1.996)), -200);
    EXPECT_EQ(EncodedLimit(LimitToSend(1.996)), 200);
}

}  // namespace
}  // namespace tavrik
