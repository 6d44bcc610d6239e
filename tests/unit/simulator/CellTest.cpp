#include "simulator/Cell.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <array>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "simulator/FileDescriptor.h"

namespace simulator {
namespace {

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
    /// @return the tty of the freshly plugged master
    FileDescriptor Plug(std::size_t number, unsigned streamRate) {
        std::string path;
        cell.Call(number, [&path, streamRate](Station& station) {
            station.port = std::make_unique<PtyPort>(PtyPort::Start::Raw);
            station.simulated->SetStreamRate(streamRate, Clock::now());
            path = station.port->NodePath();
        });
        return FileDescriptor(open(path.c_str(), O_RDWR | O_NOCTTY));
    }

    /// Reads until `end` has arrived; whatever came when nothing comes for 10 s.
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

TEST_F(CellTest, StreamsWithoutBeingAsked) {
    const FileDescriptor tty = Plug(0, 100);
    EXPECT_TRUE(ReadUntil(tty, "@PDIN=[]\n@PDIN=[]\n").starts_with("@PDIN=[]\n@PDIN=[]\n"));
}

TEST_F(CellTest, WhatACallBringsAboutIsSentWhenItReturns) {
    const FileDescriptor tty = Plug(0, 0);
    cell.Call(0,
              [](Station& station) { station.simulated->SetMode(mode::kStartup, Clock::now()); });
    EXPECT_EQ(ReadUntil(tty, "\n"), "@MODE=2\n");
}

TEST_F(CellTest, AStalledMasterHearsNothingUntilItIsFree) {
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

TEST_F(CellTest, WhatACallThrowsComesBack) {
    EXPECT_THROW(cell.Call(0, [](Station&) { throw std::runtime_error("no"); }),
                 std::runtime_error);
    EXPECT_THROW(cell.Call(2, [](Station&) {}), std::out_of_range);
    const FileDescriptor tty = Plug(0, 0);
    ASSERT_EQ(write(tty.Get(), "ID?\n", 4), 4);
    EXPECT_EQ(ReadUntil(tty, "FIN ID\n"), "ACK ID\nID=PELLIX\nFIN ID\n");
}

}  // namespace
}  // namespace simulator
