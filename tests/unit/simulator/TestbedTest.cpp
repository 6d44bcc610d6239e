#include "simulator/Testbed.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "tests/unit/simulator/UeventMonitor.h"

namespace simulator {
namespace {

namespace fs = std::filesystem;

std::string FileText(const fs::path& path) {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

class TestbedTest : public testing::Test {
protected:
    fs::path ClassEntry(int number) const {
        return testbed.Folder() / "sys/class/tty" / ("ttyACM" + std::to_string(number));
    }
    fs::path Node(int number) const {
        return testbed.Folder() / "dev" / ("ttyACM" + std::to_string(number));
    }

    Testbed testbed;
};

TEST_F(TestbedTest, AMasterIsATtyBelowAUsbDevice) {
    testbed.Add(1, "/dev/pts/7");
    const fs::path tty = fs::canonical(ClassEntry(1));
    EXPECT_EQ(FileText(tty / "uevent"), "MAJOR=166\nMINOR=1\nDEVNAME=ttyACM1\n");
    EXPECT_EQ(fs::canonical(tty / "subsystem"), testbed.Folder() / "sys/class/tty");

    const fs::path usb = tty.parent_path().parent_path().parent_path();
    EXPECT_EQ(fs::canonical(usb / "subsystem"), testbed.Folder() / "sys/bus/usb");
    EXPECT_EQ(FileText(usb / "uevent"), "DEVTYPE=usb_device\n");
    EXPECT_EQ(FileText(usb / "idVendor"), "0483\n");
    EXPECT_EQ(FileText(usb / "idProduct"), "5740\n");
    EXPECT_EQ(FileText(usb / "manufacturer"), "Zentrova\n");
    EXPECT_EQ(FileText(usb / "product"), "PELLIX\n");
    EXPECT_EQ(FileText(usb / "serial"), "PX1001\n");
}

TEST_F(TestbedTest, TheNodeLeadsToThePty) {
    testbed.Add(0, "/dev/pts/7");
    EXPECT_EQ(fs::read_symlink(Node(0)), "/dev/pts/7");
    testbed.RemoveNode(0);
    EXPECT_FALSE(fs::is_symlink(Node(0)));
    EXPECT_TRUE(fs::exists(ClassEntry(0))) << "sysfs goes later";
}

TEST_F(TestbedTest, AMasterCanComeAndGoOften) {
    testbed.Add(1, "/dev/pts/8");
    for (int round = 0; round < 3; ++round) {
        testbed.Add(0, "/dev/pts/7");
        EXPECT_TRUE(fs::exists(ClassEntry(0) / "uevent"));
        testbed.RemoveNode(0);
        testbed.RemoveDevices(0);
        EXPECT_FALSE(fs::is_symlink(ClassEntry(0)));
    }
    EXPECT_TRUE(fs::exists(ClassEntry(1) / "uevent")) << "the other one stays";
}

TEST_F(TestbedTest, ANodeThatWasLostIsMadeAgain) {
    testbed.Add(0, "/dev/pts/7");
    testbed.RemoveNode(0);
    testbed.Add(0, "/dev/pts/9");
    EXPECT_EQ(fs::read_symlink(Node(0)), "/dev/pts/9");
}

TEST_F(TestbedTest, EventsNameTheTtyAlsoWhenItIsGone) {
    const UeventMonitor monitor(testbed.Folder());
    testbed.SendEvent(2, "remove");
    const auto message = monitor.Receive();
    ASSERT_TRUE(message);
    EXPECT_NE(message->find("ACTION=remove"), std::string::npos);
    EXPECT_EQ(Property(*message, "DEVNAME"), "/dev/ttyACM2");
    EXPECT_EQ(Property(*message, "SUBSYSTEM"), "tty");
    EXPECT_EQ(Property(*message, "MINOR"), "2");
    EXPECT_EQ(Property(*message, "SEQNUM"), "1");
}

TEST(TestbedEndTest, TheFolderGoesWithIt) {
    fs::path folder;
    {
        Testbed testbed;
        testbed.Add(0, "/dev/pts/7");
        folder = testbed.Folder();
        ASSERT_TRUE(fs::exists(folder));
    }
    EXPECT_FALSE(fs::exists(folder));
}

}  // namespace
}  // namespace simulator
