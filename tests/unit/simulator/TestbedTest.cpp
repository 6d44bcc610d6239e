#include "simulator/Testbed.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>

#include "tests/unit/simulator/UeventMonitor.h"

namespace simulator {
namespace {

namespace fs = std::filesystem;

class UeventSenderTest : public testing::Test {
protected:
    UeventSenderTest() : sender(folder) {}
    ~UeventSenderTest() override { std::filesystem::remove_all(folder); }

    static std::filesystem::path MakeFolder() {
        std::string name = "/tmp/uevent-test.XXXXXX";
        return mkdtemp(name.data());
    }

    const std::filesystem::path folder = MakeFolder();
    UeventSender sender;
};

std::uint32_t NumberAt(const std::string& message, std::size_t offset) {
    std::uint32_t number = 0;
    std::memcpy(&number, message.data() + offset, sizeof number);
    return number;
}

TEST_F(UeventSenderTest, SendsMessagesInTheFormatOfLibudev) {
    const UeventMonitor monitor(folder);
    sender.Send({"ACTION=add", "SUBSYSTEM=tty"});
    const auto message = monitor.Receive();
    ASSERT_TRUE(message);
    EXPECT_EQ(message->substr(0, 8), std::string("libudev\0", 8));
    EXPECT_EQ(ntohl(NumberAt(*message, 8)), 0xfeedcafeU);
    EXPECT_EQ(NumberAt(*message, 12), 40U) << "size of the header";
    EXPECT_EQ(NumberAt(*message, 16), 40U) << "offset of the properties";
    EXPECT_EQ(NumberAt(*message, 20), message->size() - 40);
    EXPECT_EQ(message->substr(40), std::string("ACTION=add\0SUBSYSTEM=tty\0", 25));
}

TEST_F(UeventSenderTest, SendsEveryEventOnceToEveryMonitor) {
    const UeventMonitor first(folder, "event3");
    const UeventMonitor second(folder, "event17");
    sender.Send({"ACTION=add"});
    EXPECT_TRUE(first.Receive());
    EXPECT_TRUE(second.Receive());
    EXPECT_FALSE(first.HasMessage());
    EXPECT_FALSE(second.HasMessage());
}

TEST_F(UeventSenderTest, IgnoresAClosedMonitor) {
    std::optional<UeventMonitor> gone(std::in_place, folder, "event3");
    gone.reset();
    const UeventMonitor monitor(folder, "event4");
    sender.Send({"ACTION=add"});
    EXPECT_TRUE(monitor.Receive());
}

TEST_F(UeventSenderTest, QueuesEventsForASlowMonitor) {
    constexpr int kCount = 100;
    const UeventMonitor monitor(folder);
    for (int number = 0; number < kCount; ++number) {
        sender.Send({"SUBSYSTEM=tty", "SEQNUM=" + std::to_string(number)});
    }
    for (int number = 0; number < kCount; ++number) {
        const auto message = monitor.Receive();
        ASSERT_TRUE(message);
        ASSERT_EQ(Property(*message, "SEQNUM"), std::to_string(number));
    }
    EXPECT_FALSE(monitor.HasMessage());
}

TEST_F(UeventSenderTest, FailsForAMonitorThatNeverReads) {
    const UeventMonitor monitor(folder);
    const auto sendMany = [this] {
        for (int number = 0; number < 1000; ++number) {
            sender.Send({"ACTION=change"});
        }
    };
    EXPECT_THROW(sendMany(), std::runtime_error);
}

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

TEST_F(TestbedTest, AddsATtyBelowAUsbDevice) {
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

TEST_F(TestbedTest, TheNodeIsALinkToThePty) {
    testbed.Add(0, "/dev/pts/7");
    EXPECT_EQ(fs::read_symlink(Node(0)), "/dev/pts/7");
    testbed.RemoveNode(0);
    EXPECT_FALSE(fs::is_symlink(Node(0)));
    EXPECT_TRUE(fs::exists(ClassEntry(0))) << "the devices remain";
}

TEST_F(TestbedTest, CanAddAndRemoveAMasterRepeatedly) {
    testbed.Add(1, "/dev/pts/8");
    for (int round = 0; round < 3; ++round) {
        testbed.Add(0, "/dev/pts/7");
        EXPECT_TRUE(fs::exists(ClassEntry(0) / "uevent"));
        testbed.RemoveNode(0);
        testbed.RemoveDevices(0);
        EXPECT_FALSE(fs::is_symlink(ClassEntry(0)));
    }
    EXPECT_TRUE(fs::exists(ClassEntry(1) / "uevent")) << "the other master remains";
}

TEST_F(TestbedTest, AddRestoresARemovedNode) {
    testbed.Add(0, "/dev/pts/7");
    testbed.RemoveNode(0);
    testbed.Add(0, "/dev/pts/9");
    EXPECT_EQ(fs::read_symlink(Node(0)), "/dev/pts/9");
}

TEST_F(TestbedTest, SendsEventsForARemovedTty) {
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

TEST(TestbedEndTest, RemovesItsFolder) {
    fs::path folder;
    {
        Testbed testbed;
        testbed.Add(0, "/dev/pts/7");
        folder = testbed.Folder();
        ASSERT_TRUE(fs::exists(folder));
    }
    EXPECT_FALSE(fs::exists(folder));
}

TEST(PreloadListTest, NamesOurLibraryBeforeThatOfUmockdev) {
    const Testbed testbed;
    const std::string list = PreloadList(testbed.Folder(), PRELOAD_FOLDER);
    const auto place = list.find(testbed.Folder().string() + "/");
    ASSERT_NE(place, std::string::npos) << list;
    EXPECT_GT(list.find(":libumockdev-preload.so"), place) << list;
}

TEST(PreloadListTest, StartsWithTheLibrariesOfTheUser) {
    const Testbed testbed;
    setenv("LD_PRELOAD", "users.so", 1);  // NOLINT(concurrency-mt-unsafe)
    const std::string list = PreloadList(testbed.Folder(), PRELOAD_FOLDER);
    unsetenv("LD_PRELOAD");  // NOLINT(concurrency-mt-unsafe)
    EXPECT_TRUE(list.starts_with("users.so:" + testbed.Folder().string())) << list;
}

TEST(PreloadListTest, FailsIfALibraryCannotBeLoaded) {
    const Testbed testbed;
    EXPECT_THROW(PreloadList(testbed.Folder(), testbed.Folder() / "nowhere"), std::runtime_error);
}

}  // namespace
}  // namespace simulator
