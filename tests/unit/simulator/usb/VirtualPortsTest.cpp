#include "simulator/usb/VirtualPorts.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <system_error>

namespace simulator {
namespace {

namespace fs = std::filesystem;

/// With files as the kernel shows them.
class VirtualPortsTest : public testing::Test {
protected:
    ~VirtualPortsTest() override { fs::remove_all(folder); }

    void Write(const std::string& name, const std::string& text) const {
        std::ofstream(folder / name) << text;
    }

    std::string pattern = testing::TempDir() + "vhci_hcd.XXXXXX";
    const fs::path folder = mkdtemp(pattern.data());
    VirtualPorts ports{folder};
};

TEST_F(VirtualPortsTest, ArePresentWithTheModule) {
    EXPECT_FALSE(ports.ArePresent());
    EXPECT_TRUE(ports.States().empty());
    Write("attach", "");
    EXPECT_TRUE(ports.ArePresent());
}

TEST_F(VirtualPortsTest, AreThoseOfAllControllersForFullSpeed) {
    Write("status",
          "hub port sta spd dev      sockfd local_busid\n"
          "hs  0000 006 002 00000001 000003 3-1\n"
          "hs  0001 004 000 00000000 000000 0-0\n"
          "ss  0015 004 000 00000000 000000 0-0\n");
    Write("status.1", "hs  0030 005 000 00000000 000000 0-0\n");
    const auto states = ports.States();
    ASSERT_EQ(states.size(), 3U);
    EXPECT_EQ(states[0].port, 0U);
    EXPECT_FALSE(states[0].free);
    EXPECT_EQ(states[0].device, "3-1");
    EXPECT_EQ(states[1].port, 1U);
    EXPECT_TRUE(states[1].free);
    EXPECT_EQ(states[2].port, 30U);
    EXPECT_FALSE(states[2].free) << "not yet addressed";
    EXPECT_TRUE(ports.IsFree(1));
    EXPECT_FALSE(ports.IsFree(0));
    EXPECT_FALSE(ports.IsFree(15));
}

TEST_F(VirtualPortsTest, AttachesAFullSpeedDevice) {
    Write("attach", "");
    ports.Attach(3, 7, 12);
    std::ifstream file(folder / "attach");
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(file), {}), "3 7 12 2");
}

TEST_F(VirtualPortsTest, ReportsAFailedAttachment) {
    EXPECT_THROW(ports.Attach(3, 7, 12), std::system_error);
}

}  // namespace
}  // namespace simulator
