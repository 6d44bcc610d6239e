#include "web/PageCommand.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "client/Failure.h"

namespace {

using nlohmann::json;
using tavrik::PageCommand;

TEST(PageCommandTest, TellsInWordsWhatItDoes) {
    const json motion{{"gripper", "A"}, {"command", "grip"}, {"set", 3}};
    EXPECT_EQ(PageCommand(motion).Text(), "grip, set 3");
    EXPECT_EQ(PageCommand(motion).Device(), "A");
    EXPECT_EQ(PageCommand(json{{"gripper", "A"}, {"command", "holdfast"}, {"on", false}}).Text(),
              "holdfast off");
    const json setting{{"gripper", "A"},
                       {"command", "set"},
                       {"setting", "no-part-limit"},
                       {"number", 2},
                       {"value", "1.5"}};
    EXPECT_EQ(PageCommand(setting).Text(), "no-part-limit of set 2 = 1.50");
}

TEST(PageCommandTest, TellsWhetherAMotionHasOnlyStarted) {
    for (const char* const name : {"grip", "release", "reference"}) {
        const PageCommand command(json{{"gripper", "A"}, {"command", name}, {"set", 0}});
        EXPECT_EQ(command.Success(), "started") << name;
    }
    for (const char* const name : {"disable", "holdfast", "store"}) {
        const PageCommand command(json{{"gripper", "A"}, {"command", name}, {"on", true}});
        EXPECT_EQ(command.Success(), "done") << name;
    }
}

TEST(PageCommandTest, KnowsTheDriveOff) {
    EXPECT_TRUE(PageCommand(json{{"gripper", "A"}, {"command", "disable"}}).IsDisable());
    EXPECT_FALSE(PageCommand(json{{"gripper", "A"}, {"command", "store"}}).IsDisable());
}

TEST(PageCommandTest, RefusesWhatIsIncompleteOrOutOfRange) {
    for (const char* const text :
         {"[]", "{}", R"({"gripper": 1})", R"({"gripper": "A"})",
          R"({"gripper": "A", "command": "GetPos"})", R"({"gripper": "A", "command": "grip"})",
          R"({"gripper": "A", "command": "grip", "set": -1})",
          R"({"gripper": "A", "command": "grip", "set": 1.5})",
          R"({"gripper": "A", "command": "grip", "set": 4294967296})",
          R"({"gripper": "A", "command": "set", "setting": "checksum", "value": "1"})",
          R"({"gripper": "A", "command": "set", "setting": "force", "number": 32, "value": "1"})",
          R"({"gripper": "A", "command": "set", "setting": "force", "number": 0, "value": 1})",
          R"({"gripper": "A", "command": "set", "setting": "x", "number": 0, "value": "1"})"}) {
        EXPECT_THROW(PageCommand(json::parse(text)), tavrik::Failure) << text;
    }
}

}  // namespace
