#include "simulator/usb/UsbBus.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "simulator/Cell.h"

namespace simulator {
namespace {

namespace fs = std::filesystem;

Station UsbStation() {
    Station station(nullptr);
    station.usb = std::make_unique<UsbFaults>();
    return station;
}

/// With files as the kernel shows them; no kernel answers, so that every port stays as it is set.
class UsbBusTest : public testing::Test {
protected:
    UsbBusTest() {
        fs::create_directory(devices);
        ShowPorts({"", "", ""});
    }
    ~UsbBusTest() override { fs::remove_all(folder); }

    /// @param names the device in each port; none if empty
    void ShowPorts(const std::vector<std::string>& names) const {
        std::ofstream table(folder / "status");
        table << "hub port sta spd dev      sockfd local_busid\n";
        for (std::size_t port = 0; port < names.size(); ++port) {
            table << "hs  000" << port
                  << (names[port].empty() ? " 004 000 00000000 000000 0-0"
                                          : " 006 002 00000001 000003 " + names[port])
                  << '\n';
        }
    }

    /// Plugs a master in. @return what the kernel is told, without the number of the descriptor
    std::string Plug(std::size_t number) {
        std::ofstream(folder / "attach").close();
        station.port = bus.CreatePort(number, station);
        bus.Attach(number);
        unsigned port = 0;
        std::string descriptor;
        std::string rest;
        std::ifstream file(folder / "attach");
        std::getline(file >> port >> descriptor, rest);
        return std::to_string(port) + rest;
    }

    /// Resets a device that does not exist. @return the error
    std::string FailedReset(std::size_t number) {
        try {
            bus.Reset(number);
        } catch (const std::runtime_error& error) {
            return error.what();
        }
        return "";
    }

    std::string pattern = testing::TempDir() + "usb_bus.XXXXXX";
    const fs::path folder = mkdtemp(pattern.data());
    const fs::path devices = folder / "devices";
    UsbBus bus{[](const std::string& /*text*/) {}, VirtualPorts(folder), devices};
    Station station = UsbStation();
};

TEST_F(UsbBusTest, UsesThePortWithTheNumberOfTheMaster) {
    EXPECT_EQ(Plug(1), "1 2 2") << "port, number of the device, full speed";
    EXPECT_EQ(Plug(0), "0 1 2");
}

TEST_F(UsbBusTest, LeavesTheKernelsEndToTheKernel) {
    Plug(0);
    EXPECT_EQ(station.port->Read(), "");
    EXPECT_FALSE(station.port->IsConnected()) << "no kernel has taken it";
}

TEST_F(UsbBusTest, UsesNoPortOfOtherDevicesOrMasters) {
    ShowPorts({"3-1", "", ""});
    EXPECT_EQ(Plug(0), "1 1 2");
    EXPECT_EQ(Plug(1), "2 2 2") << "its own port is taken";
    EXPECT_THROW(Plug(2), std::runtime_error);
}

TEST_F(UsbBusTest, UsesTheSamePortAgain) {
    ShowPorts({"3-1", "", ""});
    EXPECT_EQ(Plug(0), "1 1 2");
    ShowPorts({"", "", ""});
    EXPECT_EQ(Plug(0), "1 1 2");
}

TEST_F(UsbBusTest, MovesAMasterOnce) {
    EXPECT_EQ(Plug(0), "0 1 2");
    station.usb->otherPort = true;
    EXPECT_EQ(Plug(0), "1 1 2");
    EXPECT_EQ(Plug(0), "1 1 2");
}

TEST_F(UsbBusTest, PlugsInADeviceWithoutHalts) {
    station.usb->haltedIn = true;
    station.usb->haltedOut = true;
    Plug(0);
    EXPECT_FALSE(station.usb->haltedIn);
    EXPECT_FALSE(station.usb->haltedOut);
}

TEST_F(UsbBusTest, WaitsUntilTheDeviceIsRemoved) {
    Plug(0);
    ShowPorts({"3-1", "", ""});
    fs::create_directory(devices / "3-1");
    bus.PrepareHangUp(0, true);
    ShowPorts({"", "", ""});
    const std::jthread kernel([this] {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        fs::remove(devices / "3-1");
    });
    bus.Detach(0);
    EXPECT_FALSE(fs::exists(devices / "3-1"));
}

TEST_F(UsbBusTest, WaitsUntilThePortIsFree) {
    Plug(0);
    ShowPorts({"3-1", "", ""});
    bus.PrepareHangUp(0, true);
    std::atomic<bool> removed = false;
    const std::jthread kernel([this, &removed] {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        removed = true;
        ShowPorts({"", "", ""});
    });
    bus.Detach(0);
    EXPECT_TRUE(removed);
}

TEST_F(UsbBusTest, ResetsTheDeviceInItsPort) {
    Plug(1);
    EXPECT_EQ(FailedReset(1), "the kernel has not accepted the device");
    ShowPorts({"3-1", "3-2", ""});
    EXPECT_EQ(FailedReset(1), "the kernel has not accepted the device") << "not listed yet";
    fs::create_directory(devices / "3-2");
    std::ofstream(devices / "3-2" / "busnum") << "998\n";
    std::ofstream(devices / "3-2" / "devnum") << "7\n";
    EXPECT_EQ(FailedReset(1), "cannot reset /dev/bus/usb/998/007: No such file or directory");
}

TEST_F(UsbBusTest, HasNoUnreportedRemovalsOrEventsOfItsOwn) {
    Plug(0);
    EXPECT_THROW(bus.PrepareHangUp(0, false), std::runtime_error);
    EXPECT_THROW(bus.SendEvent(0, "add"), std::runtime_error);
}

}  // namespace
}  // namespace simulator
