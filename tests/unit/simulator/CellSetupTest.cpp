#include "simulator/CellSetup.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "simulator/Recording.h"

namespace simulator {
namespace {

class CellSetupTest : public testing::Test {
protected:
    CellSetupTest() {
        std::ofstream(path) << kRecordingHeader << "\n0 3 plug\n0.5 5 plug\n0.6 5 > ID?\\n\n";
    }

    ~CellSetupTest() override { std::filesystem::remove_all(folder); }

    CellSetup Build(std::vector<std::string> arguments, RecordingWriter* writer = nullptr) {
        arguments.insert(arguments.end(), {"--", "daemon"});
        return SetUpCell(ParseOptions(arguments), writer,
                         [this](const std::string& text) { told.push_back(text); });
    }

    std::string folder{mkdtemp(std::string("/tmp/stations.XXXXXX").data())};
    std::string path = folder + "/cell.rec";
    std::vector<std::string> told;
};

TEST_F(CellSetupTest, GrippersAreAsTheOptionsSay) {
    const CellSetup cell = Build({"--gripper", "HVA,serial=7,id=X", "--start-mode", "2"});
    ASSERT_EQ(cell.stations.size(), 1U);
    const SimulatedMaster& master = *cell.stations[0].simulated;
    EXPECT_EQ(master.Gripper().Model().name, "HVA");
    EXPECT_EQ(*master.Gripper().Parameters().Find({21, 0}), Bytes{'7'});
    EXPECT_EQ(master.Settings().id, "X");
    EXPECT_EQ(master.Mode(), 2U);
    EXPECT_TRUE(cell.replays.empty());
}

TEST_F(CellSetupTest, RecordedMastersAreNumberedBehindTheOthers) {
    const CellSetup cell = Build({"--replay", path, "--gripper", "HVA"});
    ASSERT_EQ(cell.stations.size(), 3U);
    EXPECT_NE(cell.stations[0].simulated, nullptr);
    EXPECT_EQ(cell.stations[1].simulated, nullptr);
    ASSERT_EQ(cell.replays.size(), 2U);
    EXPECT_EQ(cell.replays[0].commands.text, "plug 1\n");
    EXPECT_EQ(cell.replays[1].commands.text, "wait 500\nplug 2\n");
    EXPECT_EQ(cell.replays[0].master->RecordedRequestCount(), 0U);
    EXPECT_EQ(cell.replays[1].master->RecordedRequestCount(), 1U);
}

TEST_F(CellSetupTest, ARecordedMasterSaysWhatAndWhereItDeviates) {
    CellSetup cell = Build({"--replay", path});
    Master& master = *cell.stations[1].master;
    master.PowerUp(Clock::now());
    master.Receive("MODE?\n", Clock::now());
    ASSERT_EQ(told.size(), 1U);
    EXPECT_TRUE(told[0].starts_with("replay 1: deviation: MODE? instead of ID? (" + path + ":4)"))
        << told[0];
}

TEST_F(CellSetupTest, ARecordedUnplugIsACommand) {
    std::ofstream(path, std::ios::app) << "0.6 3 unplug\n";
    CellSetup cell = Build({"--replay", path});
    Master& master = *cell.stations[0].master;
    master.PowerUp(Clock::now() - std::chrono::seconds(1));
    master.NextText(Clock::now());
    std::string commands(9, '\0');
    EXPECT_EQ(read(cell.replays[0].commands.descriptor, commands.data(), commands.size()), 9);
    EXPECT_EQ(commands, "unplug 0\n");
}

TEST_F(CellSetupTest, EveryMasterIsRecordedUnderItsNumber) {
    const std::string newPath = folder + "/new.rec";
    RecordingWriter writer(newPath, [](const std::string&) {});
    CellSetup cell = Build({"--replay", path, "--gripper", "HVA"}, &writer);
    for (const Station& station : cell.stations) {
        station.master->PowerUp(Clock::now());
    }
    const Recording recording = ReadRecording(newPath);
    for (unsigned number = 0; number < 3; ++number) {
        EXPECT_EQ(recording.masters.at(number).size(), 1U);
    }
    EXPECT_NE(cell.stations[0].simulated, nullptr) << "takes commands all the same";
}

TEST_F(CellSetupTest, ABrokenRecordingIsRefused) {
    EXPECT_THROW(Build({"--replay", folder + "/none"}), std::runtime_error);
}

}  // namespace
}  // namespace simulator
