#include "simulator/Options.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "simulator/TextTools.h"

namespace simulator {
namespace {

Options Parse(std::vector<std::string> arguments) {
    arguments.insert(arguments.end(), {"--", "daemon"});
    return ParseOptions(arguments);
}

TEST(OptionsTest, HasNoMasterByDefault) {
    const Options options = Parse({});
    EXPECT_TRUE(options.grippers.empty());
    EXPECT_EQ(options.command, std::vector<std::string>{"daemon"});
    EXPECT_EQ(options.master.streamRate, 100U);
    EXPECT_EQ(options.master.startMode, mode::kPreoperate);
    EXPECT_EQ(options.master.queryEnd, QueryEnd::Finish);
    EXPECT_TRUE(options.master.reportProcessOutput);
    EXPECT_EQ(options.master.pieceLength, 0U);
    EXPECT_EQ(options.ttyStart, PtyPort::Start::Raw);
    EXPECT_EQ(options.scriptPath, std::nullopt);
    EXPECT_EQ(options.recordPath, std::nullopt);
    EXPECT_TRUE(options.replayPaths.empty());
    EXPECT_EQ(options.replayTiming, ReplayingMaster::Timing::AsRecorded);
}

TEST(OptionsTest, NumbersGrippersInOrder) {
    const Options options = Parse({"--gripper", "MZD-S", "--gripper", "TLM"});
    ASSERT_EQ(options.grippers.size(), 2U);
    EXPECT_EQ(options.grippers[0].model->deviceId, 40U);
    EXPECT_EQ(options.grippers[0].product, "MZD-S");
    EXPECT_EQ(options.grippers[0].serial, "100001");
    EXPECT_EQ(options.grippers[0].id, "PELLIX");
    EXPECT_EQ(options.grippers[1].model->deviceId, 10U);
    EXPECT_EQ(options.grippers[1].serial, "100002");
}

TEST(OptionsTest, AppliesTheSettingsOfAGripper) {
    const Options options = Parse({"--gripper", R"(HVA,serial=7\x00,product=a=b,id=)"});
    EXPECT_EQ(options.grippers[0].serial, std::string("7\0", 2));
    EXPECT_EQ(options.grippers[0].product, "a=b");
    EXPECT_EQ(options.grippers[0].id, "");
}

TEST(OptionsTest, ACommandIsOptionalOnUsb) {
    const std::vector<std::string> without{"--usb", "--gripper", "HVA"};
    EXPECT_TRUE(ParseOptions(without).usb);
    EXPECT_TRUE(ParseOptions(without).command.empty());
    EXPECT_EQ(Parse({"--usb"}).command, std::vector<std::string>{"daemon"});
    EXPECT_FALSE(Parse({}).usb);
    EXPECT_THROW(ParseOptions(std::vector<std::string>{"--usb", "--"}), UsageError);
    EXPECT_THROW(Parse({"--usb", "--cooked"}), UsageError);
}

TEST(OptionsTest, AppliesEveryOption) {
    const Options options = Parse({"--gripper",   "HVA",          "--unplugged",
                                   "0",           "--pdin-hz",    "0",
                                   "--query-end", "data",         "--report-pdout",
                                   "off",         "--start-mode", "2",
                                   "--cooked",    "--split",      "128",
                                   "--speed",     "12.5",         "--script",
                                   "file",        "--record",     "new",
                                   "--replay",    "old",          "--replay",
                                   "older",       "--at-once"});
    EXPECT_TRUE(options.unplugged.contains(0));
    EXPECT_EQ(options.master.streamRate, 0U);
    EXPECT_EQ(options.master.queryEnd, QueryEnd::DataLine);
    EXPECT_FALSE(options.master.reportProcessOutput);
    EXPECT_EQ(options.master.startMode, 2U);
    EXPECT_EQ(options.ttyStart, PtyPort::Start::Cooked);
    EXPECT_EQ(options.master.pieceLength, 128U);
    EXPECT_EQ(options.speed, 12.5);
    EXPECT_EQ(options.scriptPath, "file");
    EXPECT_EQ(options.recordPath, "new");
    EXPECT_EQ(options.replayPaths, (std::vector<std::string>{"old", "older"}));
    EXPECT_EQ(options.replayTiming, ReplayingMaster::Timing::AtOnce);
}

TEST(OptionsTest, TakesTheLastOfRepeatedValues) {
    const Options options = Parse({"--cooked", "--split", "1", "--cooked", "--split", "010"});
    EXPECT_EQ(options.master.pieceLength, 10U) << "not octal";
}

TEST(OptionsTest, AcceptsAnyPath) {
    const Options options = Parse({"--replay", "[a,b]", "--record", "--cooked"});
    EXPECT_EQ(options.replayPaths, std::vector<std::string>{"[a,b]"});
    EXPECT_EQ(options.recordPath, "--cooked");
}

TEST(OptionsTest, NamesOptionAndValueInErrors) {
    try {
        Parse({"--gripper", "HVA", "--pdin-hz", "10001"});
        ADD_FAILURE();
    } catch (const UsageError& error) {
        EXPECT_STREQ(error.what(), "--pdin-hz: invalid number '10001': the maximum is 10000");
    }
}

TEST(OptionsTest, ArgumentsAfterTheDashesBelongToTheCommand) {
    const std::vector<std::string> arguments{"--", "sh", "--cooked", "--"};
    const Options options = ParseOptions(arguments);
    EXPECT_EQ(options.command, (std::vector<std::string>{"sh", "--cooked", "--"}));
    EXPECT_EQ(options.ttyStart, PtyPort::Start::Raw);
}

TEST(OptionsTest, HelpNeedsNoCommand) {
    const std::vector<std::string> arguments{"--help"};
    EXPECT_TRUE(ParseOptions(arguments).help);
}

TEST(OptionsTest, NeedsACommand) {
    const std::vector<std::string> noDashes{"--cooked"};
    EXPECT_THROW(ParseOptions(noDashes), UsageError);
    const std::vector<std::string> nothingAfterDashes{"--"};
    EXPECT_THROW(ParseOptions(nothingAfterDashes), UsageError);
}

TEST(OptionsTest, RejectsInvalidArguments) {
    const std::vector<std::vector<std::string>> invalid{
        {"--gripper"},
        {"--gripper", ""},
        {"--gripper", "XYZ"},
        {"--gripper", "HVA,serial"},
        {"--gripper", "HVA,colour=red"},
        {"--unplugged", "0"},
        {"--pdin-hz", "-1"},
        {"--query-end", "ack"},
        {"--report-pdout", "1"},
        {"--start-mode", "operate"},
        {"--speed", "0"},
        {"--what"},
        {"daemon"},
    };
    for (const auto& arguments : invalid) {
        EXPECT_THROW(Parse(arguments), UsageError) << testing::PrintToString(arguments);
    }
}

TEST(TapOptionsTest, TheLastPathIsTheFile) {
    const std::vector<std::string> arguments{"/dev/ttyACM0", "/dev/ttyACM1", "field.rec"};
    const TapOptions options = ParseTapOptions(arguments);
    EXPECT_EQ(options.ttyPaths, (std::vector<std::string>{"/dev/ttyACM0", "/dev/ttyACM1"}));
    EXPECT_EQ(options.recordPath, "field.rec");
    EXPECT_TRUE(options.command.empty());
    EXPECT_FALSE(options.help);
}

TEST(TapOptionsTest, TheCommandFollowsTheDashes) {
    const std::vector<std::string> arguments{"/dev/ttyACM0", "field.rec", "--", "sh", "--help"};
    const TapOptions options = ParseTapOptions(arguments);
    EXPECT_EQ(options.recordPath, "field.rec");
    EXPECT_EQ(options.command, (std::vector<std::string>{"sh", "--help"}));
    EXPECT_FALSE(options.help);
}

TEST(TapOptionsTest, HelpNeedsNothingElse) {
    const std::vector<std::string> arguments{"--help"};
    EXPECT_TRUE(ParseTapOptions(arguments).help);
}

TEST(TapOptionsTest, RejectsInvalidArguments) {
    const std::vector<std::vector<std::string>> invalid{{},
                                                        {"/dev/ttyACM0"},
                                                        {"/dev/ttyACM0", "--", "sh"},
                                                        {"/dev/ttyACM0", "field.rec", "--"},
                                                        {"/dev/ttyACM0", "--what", "field.rec"}};
    for (const auto& arguments : invalid) {
        EXPECT_THROW(ParseTapOptions(arguments), UsageError) << testing::PrintToString(arguments);
    }
}

}  // namespace
}  // namespace simulator
