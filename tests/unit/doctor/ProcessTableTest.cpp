#include "doctor/ProcessTable.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

#include "tests/unit/doctor/FakeFolder.h"

namespace tavrik {
namespace {

struct stat StatusOf(const char* node) {
    struct stat status = {};
    EXPECT_EQ(stat(node, &status), 0) << node;
    return status;
}

TEST(ProcessTableTest, HoldersOfADeviceAreFound) {
    const FakeFolder proc;
    proc.AddProcess(1, "init");
    proc.AddProcess(7, "terminal", "/dev/null");
    const ProcessTable table(proc.Path());
    const auto holders = table.HoldersOfDevice(StatusOf("/dev/null"));
    ASSERT_EQ(holders.size(), 1U);
    EXPECT_EQ(holders.front().Text(), "terminal (process 7)");
    EXPECT_TRUE(table.HoldersOfDevice(StatusOf("/dev/zero")).empty());
    EXPECT_TRUE(table.CanReadAllOpenFiles());
}

TEST(ProcessTableTest, PseudoTerminalsOfContainersAreDistinct) {
    const FakeFolder proc;
    const int otherEnd = posix_openpt(O_RDWR);
    const std::string tty = ptsname(otherEnd);  // NOLINT(concurrency-mt-unsafe)
    proc.AddProcess(7, "terminal", tty);
    const ProcessTable table(proc.Path());
    struct stat node = StatusOf(tty.c_str());
    close(otherEnd);
    EXPECT_EQ(table.HoldersOfDevice(node).size(), 1U);
    ++node.st_dev;
    EXPECT_TRUE(table.HoldersOfDevice(node).empty());
}

TEST(ProcessTableTest, OtherDevicesAreTheSameInAContainer) {
    const FakeFolder proc;
    proc.AddProcess(7, "terminal", "/dev/null");
    struct stat node = StatusOf("/dev/null");
    ++node.st_dev;
    EXPECT_EQ(ProcessTable(proc.Path()).HoldersOfDevice(node).size(), 1U);
}

TEST(ProcessTableTest, AnUnreadableProcessIsSkipped) {
    const FakeFolder proc;
    proc.AddProcess(7, "init");
    std::filesystem::create_directories(proc.Path() + "/8/stat");  // reading it fails
    EXPECT_TRUE(ProcessTable(proc.Path()).Find("init"));
}

TEST(ProcessTableTest, NamesMayHaveBlanksAndParentheses) {
    const FakeFolder proc;
    proc.AddProcess(7, "a) S (b");
    EXPECT_EQ(ProcessTable(proc.Path()).Find("a) S (b")->pid, 7);
}

TEST(ProcessTableTest, ZombiesDoNotCount) {
    const FakeFolder proc;
    proc.AddProcess(7, "TavrikDaemon", "", 'Z');
    EXPECT_FALSE(ProcessTable(proc.Path()).Find("TavrikDaemon"));
}

TEST(ProcessTableTest, AStoppedProcessIsRecognized) {
    const FakeFolder proc;
    proc.AddProcess(7, "stopped", "", 'T');
    proc.AddProcess(8, "sleeping");
    const ProcessTable table(proc.Path());
    EXPECT_TRUE(table.Find("stopped")->isStopped);
    EXPECT_FALSE(table.Find("sleeping")->isStopped);
}

TEST(ProcessTableTest, ProcessesOfAnotherNetworkHoldDevicesButServeOthers) {
    const FakeFolder proc;
    proc.Link("self/ns/net", "net:[1]");
    proc.AddProcess(7, "TavrikDaemon", "/dev/null");
    proc.Link("7/ns/net", "net:[2]");
    proc.AddProcess(8, "ours");
    proc.Link("8/ns/net", "net:[1]");
    const ProcessTable table(proc.Path());
    EXPECT_FALSE(table.Find("TavrikDaemon"));
    EXPECT_EQ(table.FindInOtherNetwork("TavrikDaemon")->pid, 7);
    EXPECT_EQ(table.HoldersOfDevice(StatusOf("/dev/null")).size(), 1U);
    EXPECT_TRUE(table.Find("ours"));
    EXPECT_FALSE(table.FindInOtherNetwork("ours"));
}

TEST(ProcessTableTest, AProcessInOurNetworkComesFirst) {
    const FakeFolder proc;
    proc.Link("self/ns/net", "net:[1]");
    proc.AddProcess(7, "TavrikDaemon");
    EXPECT_EQ(ProcessTable(proc.Path()).Find("TavrikDaemon")->pid, 7);
    proc.AddProcess(8, "TavrikDaemon");
    proc.Link("8/ns/net", "net:[1]");
    EXPECT_EQ(ProcessTable(proc.Path()).Find("TavrikDaemon")->pid, 8);
}

TEST(ProcessTableTest, HiddenProcessesAreDetected) {
    const FakeFolder proc;
    proc.AddProcess(7, "mine");
    const ProcessTable table(proc.Path());
    EXPECT_FALSE(table.ListsAllProcesses());
    EXPECT_FALSE(table.CanReadAllOpenFiles());
    EXPECT_TRUE(table.CanReadOpenFiles(7));
    EXPECT_FALSE(table.CanReadOpenFiles(8));
}

TEST(ProcessTableTest, HiddenOpenFilesAreDetected) {
    const FakeFolder proc;
    proc.Write("1/stat", "1 (init) S 0\n");  // and no list of files, like one that may not be read
    const ProcessTable table(proc.Path());
    EXPECT_TRUE(table.ListsAllProcesses());
    EXPECT_FALSE(table.CanReadAllOpenFiles());
}

TEST(ProcessTableTest, MalformedEntriesAreIgnored) {
    const FakeFolder proc;
    proc.Write("7/stat", "");
    proc.Write("8/stat", "8 (cut) ");
    proc.Write("9", "no folder");
    proc.Write("x/stat", "x (x) S 1\n");
    proc.AddProcess(10, "whole", "/no/such/file");
    const ProcessTable table(proc.Path());
    EXPECT_FALSE(table.Find("cut"));
    EXPECT_FALSE(table.Find("x"));
    EXPECT_TRUE(table.Find("whole"));
}

TEST(ProcessTableTest, WithoutProcessesNothingIsSeen) {
    EXPECT_FALSE(ProcessTable("/no/such/folder").CanReadAllOpenFiles());
}

}  // namespace
}  // namespace tavrik
