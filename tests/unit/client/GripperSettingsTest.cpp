#include "client/GripperSettings.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>

#include "client/JsonFile.h"
#include "tests/unit/client/ExpectFailure.h"
#include "tests/unit/client/TemporaryFile.h"

namespace tavrik {
namespace {

using SortedJson = nlohmann::json;

SettingPlace At(const std::string& name, int number = 0) {
    return {&FindSetting(name), number};
}

/// All settings of a gripper, 0 except for the given ones.
GripperSettings Make(const std::string& gripper, const std::string& model,
                     const std::map<SettingPlace, int>& values) {
    GripperSettings settings{gripper, model, -5, {}};
    for (const SettingPlace& place : PlacesOf(model)) {
        settings.values[place] = 0;
    }
    for (const auto& [place, value] : values) {
        settings.values.at(place) = value;
    }
    return settings;
}

GripperSettings Hva() {
    return Make("HVA SN:1", "HVA",
                {{At("force"), 50},
                 {At("no-part-limit"), -125},
                 {At("release-limit", 1), 32767},
                 {At("override-grip"), 100},
                 {At("reference-direction"), 1}});
}

TEST(GripperSettingsTest, EachModelHasItsSettings) {
    EXPECT_EQ(PlacesOf("TLM").size(), 2U + 32 * 2);
    EXPECT_EQ(PlacesOf("HVA").size(), 3U + 32 * 3);
    EXPECT_EQ(PlacesOf("MZD").size(), 3U + 32 * 3 + 128 * 3);
    EXPECT_EQ(PlacesOf("HVA or MZD").size(), PlacesOf("MZD").size());
    EXPECT_EQ(PlacesOf("TLM?").size(), PlacesOf("MZD").size());
}

TEST(GripperSettingsTest, TheTextOfAValueIsThatOfTheSetting) {
    EXPECT_EQ(SettingText(FindSetting("no-part-limit"), -125), "-1.25");
    EXPECT_EQ(SettingText(FindSetting("reference-direction"), 1), "on");
    EXPECT_EQ(SettingText(FindSetting("force"), 60), "60");
    EXPECT_EQ(At("override-grip").Name(), "override-grip");
    EXPECT_EQ(At("force", 3).Name(), "force of set 3");
    EXPECT_EQ(At("led-color", 3).Name(), "led-color of LED 3");
}

TEST(GripperSettingsTest, TheFileEndsWithTheLastSetThatIsUsed) {
    EXPECT_EQ(JsonFileText(ToJson(Hva())),
              "{\n"
              "  \"checksum\": -5,\n"
              "  \"format\": \"TavrikDaemon gripper settings\",\n"
              "  \"gripper\": \"HVA SN:1\",\n"
              "  \"model\": \"HVA\",\n"
              "  \"override-grip\": 100,\n"
              "  \"override-release\": 0,\n"
              "  \"reference-direction\": true,\n"
              "  \"sets\": [\n"
              "    {\"force\":50,\"no-part-limit\":-1.25,\"release-limit\":0.0,\"set\":0},\n"
              "    {\"force\":0,\"no-part-limit\":0.0,\"release-limit\":327.67,\"set\":1}\n"
              "  ],\n"
              "  \"version\": 1\n"
              "}\n");
}

TEST(GripperSettingsTest, EveryValueComesBackFromTheFile) {
    const TemporaryFile file;
    GripperSettings settings = Make("MZD-L SN:2", "MZD", {{At("led-speed", 127), 255}});
    int limit = -32768;
    for (auto& [place, value] : settings.values) {
        if (place.setting->kind == Setting::Kind::Limit) {
            value = limit;
            limit = limit < 31000 ? limit + 1031 : 29;
        }
    }
    file.Write(JsonFileText(ToJson(settings)));
    const GripperSettings read = ReadSettingsFile(file.path);
    EXPECT_EQ(Differences(settings, read).size(), 0U);
    EXPECT_EQ(read.values.size(), settings.values.size());
    EXPECT_EQ(read.gripper, "MZD-L SN:2");
    EXPECT_EQ(read.model, "MZD");
    EXPECT_EQ(read.checksum, -5);
}

TEST(GripperSettingsTest, TheContentOfAFileIsReadLikeTheFile) {
    const std::string text = JsonFileText(ToJson(Hva()));
    EXPECT_EQ(Differences(Hva(), ParseSettingsFile(text, "a.json")).size(), 0U);
    EXPECT_FAILURE(ParseSettingsFile("[]", "a.json"), Usage, "a.json: not a JSON object");
}

TEST(GripperSettingsTest, DifferencesAreInTheOrderOfTheSets) {
    GripperSettings other = Hva();
    other.values.at(At("force", 1)) = 60;
    other.values.at(At("release-limit")) = 100;
    other.values.at(At("reference-direction")) = 0;
    std::string text;
    for (const auto& [place, from, to] : Differences(Hva(), other)) {
        text += place.Name() + ": " + std::to_string(from) + " " + std::to_string(to) + "\n";
    }
    EXPECT_EQ(text,
              "reference-direction: 1 0\n"
              "release-limit of set 0: 0 100\n"
              "force of set 1: 0 60\n");
}

TEST(GripperSettingsTest, AnotherProductOrModelIsRejected) {
    Hva().ExpectSameModel(Make("HVA SN:2", "HVA", {}), "f");
    Hva().ExpectSameModel(Make("HVA SN:2", "TLM?", {}), "f");
    EXPECT_FAILURE(Hva().ExpectSameModel(Make("HVA2 SN:1", "HVA", {}), "f"), NotPossible,
                   "f has the settings of a 'HVA2', model HVA, but this gripper is a 'HVA', "
                   "model HVA");
    EXPECT_FAILURE(Hva().ExpectSameModel(Make("HVA SN:1", "MZD", {}), "f"), NotPossible,
                   "f has the settings of a 'HVA', model MZD, but this gripper is a 'HVA', "
                   "model HVA");
}

class SettingsFileTest : public testing::Test {
protected:
    void ExpectInvalid(const std::string& reason) {
        file.Write(json.dump());
        EXPECT_FAILURE(ReadSettingsFile(file.path), Usage, (file.path + ": " + reason).c_str());
        json = ToJson(Hva());
    }

    const TemporaryFile file;
    SortedJson json = ToJson(Hva());
};

TEST_F(SettingsFileTest, EveryMemberIsNeeded) {
    const SortedJson complete = json;
    for (const auto& [name, value] : complete.items()) {
        json.erase(name);
        ExpectInvalid(name == "format"    ? "'format' is not 'TavrikDaemon gripper settings'"
                      : name == "version" ? "version null of its format is not supported, only 1"
                                          : "'" + name + "' is missing");
    }
    json["sets"][1].erase("force");
    ExpectInvalid("sets[1]: 'force' is missing");
    json["sets"].erase(0);
    ExpectInvalid("sets[0]: 'set' must be 0: none may be missing");
    json["sets"].clear();
    ExpectInvalid("set 0 is missing");
}

TEST_F(SettingsFileTest, UnknownMembersAreRejected) {
    json["power"] = 1;
    ExpectInvalid("'power' is unknown for model HVA");
    json["leds"] = SortedJson::array();
    ExpectInvalid("'leds' is unknown for model HVA");
    json["sets"][0]["led-color"] = 1;
    ExpectInvalid("sets[0]: 'led-color' is unknown for model HVA");
}

TEST_F(SettingsFileTest, WrongTypesAreRejected) {
    json["sets"] = 1;
    ExpectInvalid("'sets' must be an array of up to 32");
    json["sets"][0] = 1;
    ExpectInvalid("sets[0]: must be an object");
    json["override-grip"] = "100";
    ExpectInvalid("'override-grip' must be 0 to 255");
    json["override-grip"] = 1.5;
    ExpectInvalid("'override-grip' must be 0 to 255");
    json["reference-direction"] = 1;
    ExpectInvalid("'reference-direction' must be true or false");
    json["gripper"] = "";
    ExpectInvalid("'gripper' must be a string");
    json["model"] = 1;
    ExpectInvalid("'model' must be a string");
    json["checksum"] = 1.5;
    ExpectInvalid("'checksum' must be an integer");
}

TEST_F(SettingsFileTest, ValuesOutOfRangeAreRejected) {
    for (const SortedJson& value : {SortedJson(256), SortedJson(-1), SortedJson(1LL << 40)}) {
        json["sets"][0]["force"] = value;
        ExpectInvalid("sets[0]: 'force' must be 0 to 255");
    }
    for (const SortedJson& value : {SortedJson(327.68), SortedJson(-327.69), SortedJson(1e300),
                                    SortedJson("1"), SortedJson()}) {
        json["sets"][1]["no-part-limit"] = value;
        ExpectInvalid("sets[1]: 'no-part-limit' must be -327.68 to 327.67");
    }
    json["sets"][0]["release-limit"] = 1.005;
    ExpectInvalid("sets[0]: 'release-limit' must have at most two decimals");
    for (int set = 2; set <= kSetCount; ++set) {
        json["sets"].push_back({{"set", set}});
    }
    ExpectInvalid("'sets' must be an array of up to 32");
}

TEST_F(SettingsFileTest, AWholeNumberIsALimit) {
    json["sets"][0]["release-limit"] = 7;
    file.Write(json.dump());
    EXPECT_EQ(ReadSettingsFile(file.path).Value(At("release-limit")), 700);
}

}  // namespace
}  // namespace tavrik
