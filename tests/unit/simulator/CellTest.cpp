#include "simulator/Cell.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "simulator/FileDescriptor.h"
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
                         [this](const std::string& text) { printed.push_back(text); });
    }

    std::string folder{mkdtemp(std::string("/tmp/stations.XXXXXX").data())};
    std::string path = folder + "/cell.rec";
    std::vector<std::string> printed;
};

TEST_F(CellSetupTest, AppliesTheOptionsToGrippers) {
    const CellSetup cell = Build({"--gripper", "HVA,serial=7,id=X", "--start-mode", "2"});
    ASSERT_EQ(cell.stations.size(), 1U);
    const SimulatedMaster& master = *cell.stations[0].simulated;
    EXPECT_EQ(master.Gripper().Model().name, "HVA");
    EXPECT_EQ(*master.Gripper().Parameters().Find({21, 0}), Bytes{'7'});
    EXPECT_EQ(master.Settings().id, "X");
    EXPECT_EQ(master.Mode(), 2U);
    EXPECT_TRUE(cell.replays.empty());
}

TEST_F(CellSetupTest, NumbersReplayedMastersAfterTheOthers) {
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

TEST_F(CellSetupTest, AReplayedMasterPrintsDeviations) {
    CellSetup cell = Build({"--replay", path});
    Master& master = *cell.stations[1].master;
    master.PowerUp(Clock::now());
    master.Receive("MODE?\n", Clock::now());
    ASSERT_EQ(printed.size(), 1U);
    EXPECT_TRUE(
        printed[0].starts_with("replay 1: deviation: MODE? instead of ID? (" + path + ":4)"))
        << printed[0];
}

TEST_F(CellSetupTest, ARecordedUnplugIsSentAsACommand) {
    std::ofstream(path, std::ios::app) << "0.6 3 unplug\n";
    CellSetup cell = Build({"--replay", path});
    Master& master = *cell.stations[0].master;
    master.PowerUp(Clock::now() - std::chrono::seconds(1));
    master.NextText(Clock::now());
    std::string commands(9, '\0');
    EXPECT_EQ(read(cell.replays[0].commands.descriptor, commands.data(), commands.size()), 9);
    EXPECT_EQ(commands, "unplug 0\n");
}

TEST_F(CellSetupTest, RecordsEveryMasterWithItsNumber) {
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
    EXPECT_NE(cell.stations[0].simulated, nullptr) << "still accepts commands";
}

TEST_F(CellSetupTest, RejectsAnUnreadableRecording) {
    EXPECT_THROW(Build({"--replay", folder + "/none"}), std::runtime_error);
}

std::vector<Station> TwoStations() {
    std::vector<Station> stations;
    for (const char* const model : {"HVA", "TLM"}) {
        auto master = std::make_unique<SimulatedMaster>(MasterSettings(), *FindGripperModel(model),
                                                        Bytes{'P'}, Bytes{'S'}, Clock::now());
        stations.emplace_back(std::move(master));
    }
    return stations;
}

class CellTest : public testing::Test {
protected:
    /// @return the tty of the plugged master
    FileDescriptor Plug(std::size_t number, unsigned streamRate) {
        std::string path;
        cell.Call(number, [&path, streamRate](Station& station) {
            station.port = std::make_unique<PtyPort>(PtyPort::Start::Raw);
            station.simulated->SetStreamRate(streamRate, Clock::now());
            path = station.port->NodePath();
        });
        return FileDescriptor(open(path.c_str(), O_RDWR | O_NOCTTY));
    }

    /// Reads until `end` arrives, or nothing arrives for 10 s.
    static std::string ReadUntil(const FileDescriptor& tty, const std::string& end) {
        std::string text;
        std::array<char, 256> buffer{};
        pollfd entry{tty.Get(), POLLIN, 0};
        while (text.find(end) == std::string::npos && poll(&entry, 1, 10000) == 1) {
            const ssize_t count = read(tty.Get(), buffer.data(), buffer.size());
            if (count <= 0) {
                break;
            }
            text.append(buffer.data(), static_cast<std::size_t>(count));
        }
        return text;
    }

    Cell cell{TwoStations()};
};

TEST_F(CellTest, EveryMasterAnswersOnItsOwnTty) {
    const FileDescriptor first = Plug(0, 0);
    const FileDescriptor second = Plug(1, 0);
    ASSERT_EQ(write(first.Get(), "DEVINFO?\n", 9), 9);
    ASSERT_EQ(write(second.Get(), "DEVINFO?\n", 9), 9);
    EXPECT_NE(ReadUntil(first, "FIN DEVINFO\n").find("31249,20]"), std::string::npos);
    EXPECT_NE(ReadUntil(second, "FIN DEVINFO\n").find("31249,10]"), std::string::npos);
}

TEST_F(CellTest, StreamsWithoutARequest) {
    const FileDescriptor tty = Plug(0, 100);
    EXPECT_TRUE(ReadUntil(tty, "@PDIN=[]\n@PDIN=[]\n").starts_with("@PDIN=[]\n@PDIN=[]\n"));
}

TEST_F(CellTest, CallSendsTheTextsThatItMakesDue) {
    const FileDescriptor tty = Plug(0, 0);
    cell.Call(0,
              [](Station& station) { station.simulated->SetMode(mode::kStartup, Clock::now()); });
    EXPECT_EQ(ReadUntil(tty, "\n"), "@MODE=2\n");
}

TEST_F(CellTest, AStalledMasterReceivesNothing) {
    const FileDescriptor tty = Plug(0, 0);
    ASSERT_EQ(write(tty.Get(), "ID?\n", 4), 4);
    EXPECT_EQ(ReadUntil(tty, "FIN ID\n"), "ACK ID\nID=PELLIX\nFIN ID\n");
    cell.Call(0, [](Station& station) { station.port->SetStalled(true); });
    pollfd entry{tty.Get(), POLLOUT, 0};
    EXPECT_EQ(poll(&entry, 1, 0), 0);
    cell.Call(0, [](Station& station) { station.port->SetStalled(false); });
    ASSERT_EQ(write(tty.Get(), "ID?\n", 4), 4);
    EXPECT_EQ(ReadUntil(tty, "FIN ID\n"), "ACK ID\nID=PELLIX\nFIN ID\n");
}

TEST_F(CellTest, RemovedPortsHangUp) {
    const FileDescriptor first = Plug(0, 0);
    const FileDescriptor second = Plug(1, 0);
    cell.RemovePorts();
    for (const FileDescriptor* const tty : {&first, &second}) {
        pollfd entry{tty->Get(), 0, 0};
        EXPECT_EQ(poll(&entry, 1, 10000), 1);
        EXPECT_NE(entry.revents & POLLHUP, 0);
    }
}

TEST_F(CellTest, RemovedPortsHaveServedWhatWasWrittenLast) {
    for (std::size_t count = 1; count <= 100; ++count) {
        const FileDescriptor tty = Plug(0, 0);
        ASSERT_EQ(write(tty.Get(), "ID?\n", 4), 4);
        cell.RemovePorts();
        std::size_t requests = 0;
        cell.Call(0, [&](Station& station) { requests = station.simulated->RequestCount(); });
        ASSERT_EQ(requests, count);
    }
}

TEST_F(CellTest, CallRethrowsExceptions) {
    EXPECT_THROW(cell.Call(0, [](Station&) { throw std::runtime_error("no"); }),
                 std::runtime_error);
    EXPECT_THROW(cell.Call(2, [](Station&) {}), std::out_of_range);
    const FileDescriptor tty = Plug(0, 0);
    ASSERT_EQ(write(tty.Get(), "ID?\n", 4), 4);
    EXPECT_EQ(ReadUntil(tty, "FIN ID\n"), "ACK ID\nID=PELLIX\nFIN ID\n");
}

}  // namespace
}  // namespace simulator
