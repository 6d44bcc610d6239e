#include "pellix/GripperManager.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <list>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/Allocations.h"
#include "tests/support/FakeMaster.h"
#include "tests/support/LogCapture.h"
#include "tests/support/WaitFor.h"
#include "tests/unit/pellix/FailingUdev.h"
#include "tests/unit/pellix/UdevTestbed.h"

using support::FakeMaster;
using support::LogCapture;
using support::Messages;
using support::WaitFor;
using Lines = std::vector<std::string>;
using Usb = UdevTestbed::Usb;

namespace {

Messages operator+(Messages left, const Messages& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

/// @return the log lines about a master of UdevTestbed
Messages Report(std::size_t number, const std::string& product = "PELLIX") {
    return {"   Node: /dev/ttyACM" + std::to_string(number),
            "   Subsystem: tty",
            "  VID/PID: 0483 5740",
            "  Manufacturer: Zentrova",
            "  Product: " + product,
            "  SN: PX1000"};
}

}  // namespace

class GripperManagerTest : public testing::Test {
protected:
    void TearDown() override {
        // The testbed must not be destroyed while the monitor thread starts up in it.
        EXPECT_TRUE(!started || failing_udev::noMonitor || IsListening());
        manager.reset();
        for (FakeMaster& master : masters) {
            master.Unplug();
        }
        for (std::atomic<bool>* failure :
             {&failing_udev::noContext, &failing_udev::noMonitor, &failing_udev::noDevice,
              &failing_udev::noAction, &failing_udev::noDeviceNode,
              &failing_udev::throwingAction}) {
            *failure = false;
        }
    }

    /// Creates a master behind /dev/ttyACM<number> that udev does not list yet.
    FakeMaster& Connect(std::size_t number) {
        FakeMaster& master = masters.emplace_back();
        master.StreamEvery(std::chrono::milliseconds(5));  // reads are short
        testbed.Connect(number, master.Tty().KernelPath());
        return master;
    }

    void Start() {
        manager = std::make_unique<GripperManager>();
        started = true;
    }

    bool IsListening() const {
        return WaitFor([this] { return testbed.IsMonitored(); });
    }

    /// Creates a manager that has found no master and receives events.
    void StartAndListen() {
        Start();
        ASSERT_TRUE(IsListening());
        log.Clear();
    }

    bool WaitForLine(const std::string& message) const {
        return WaitFor([&] { return log.Contains(message); });
    }

    /// Sends a last event and waits until the manager has handled it and all events before.
    void Finish(const std::string& sysPath) {
        testbed.SendEvent(sysPath, "offline");
        ASSERT_TRUE(WaitForLine("Unknown udev action: offline"));
    }

    /// @return messages about the events before Finish()
    Messages OfEvents() const {
        const Messages all = log.All();
        return {all.begin(), std::find(all.begin(), all.end(), "Got Device with action offline")};
    }

    UdevTestbed testbed;
    LogCapture log;
    std::list<FakeMaster> masters;
    std::unique_ptr<GripperManager> manager;
    bool started = false;
};

struct MatchRow {
    const char* name;
    Usb usb;
    bool matches;
};

std::ostream& operator<<(std::ostream& out, const MatchRow& row) {
    return out << row.name;
}

class GripperManagerMatchTest : public GripperManagerTest,
                                public testing::WithParamInterface<MatchRow> {};

TEST_P(GripperManagerMatchTest, MasterIsRecognisedByItsExactAttributes) {
    const UdevDevice device = testbed.Find(testbed.AddMaster(0, GetParam().usb));
    ASSERT_NE(device, nullptr);
    EXPECT_EQ(GripperManager::IsCompatibleDevice(device.get()), GetParam().matches);
    EXPECT_EQ(log.All(),
              GetParam().matches ? Messages{"Found PELLIX compatible device"} : Messages{});
}

INSTANTIATE_TEST_SUITE_P(
    All, GripperManagerMatchTest,
    testing::Values(MatchRow{"Pellix", {}, true}, MatchRow{"Marrok", {.name = "MARROK-7"}, true},
                    MatchRow{"WithoutSerial", {.serial = std::nullopt}, true},
                    MatchRow{"OtherVendor", {.vendor = "0484"}, false},
                    MatchRow{"NoVendor", {.vendor = std::nullopt}, false},
                    MatchRow{"LongerVendor", {.vendor = "04830"}, false},
                    MatchRow{"OtherProductId", {.product = "5741"}, false},
                    MatchRow{"NoProductId", {.product = std::nullopt}, false},
                    MatchRow{"OtherCaseOfManufacturer", {.manufacturer = "ZENTROVA"}, false},
                    MatchRow{"LowerCaseManufacturer", {.manufacturer = "zentrova"}, false},
                    MatchRow{"LongerManufacturer", {.manufacturer = "Zentrova Inc"}, false},
                    MatchRow{"NoManufacturer", {.manufacturer = std::nullopt}, false},
                    MatchRow{"OtherCaseOfProduct", {.name = "Pellix"}, false},
                    MatchRow{"LongerProduct", {.name = "PELLIX2"}, false},
                    MatchRow{"ProductWithBlank", {.name = "PELLIX "}, false},
                    MatchRow{"Marrok70", {.name = "MARROK-70"}, false},
                    MatchRow{"EmptyProduct", {.name = ""}, false},
                    MatchRow{"NoProduct", {.name = std::nullopt}, false}),
    [](const auto& row) { return row.param.name; });

TEST_F(GripperManagerTest, DeviceWithoutUsbParentIsNotAMaster) {
    EXPECT_FALSE(
        GripperManager::IsCompatibleDevice(testbed.Find(testbed.Add("tty", "ttyS0")).get()));
    EXPECT_TRUE(log.All().empty());
}

TEST_F(GripperManagerTest, DeviceOfAnotherSubsystemIsNotAMaster) {
    const std::string tty = testbed.AddMaster(0, {});
    const UdevDevice parent = testbed.Find(tty.substr(0, tty.rfind('/')));
    ASSERT_NE(parent, nullptr);
    EXPECT_FALSE(GripperManager::IsCompatibleDevice(parent.get()));
}

TEST_F(GripperManagerTest, DeviceWithoutNodeIsNotAMaster) {
    const UdevDevice device = testbed.Find(testbed.AddMaster(0, {}));
    failing_udev::noDeviceNode = true;
    EXPECT_FALSE(GripperManager::IsCompatibleDevice(device.get()));
    EXPECT_TRUE(log.All().empty());
}

TEST_F(GripperManagerTest, VanishedDeviceIsNotAMasterAndNotReported) {
    EXPECT_FALSE(GripperManager::IsCompatibleDevice(nullptr));
    GripperManager::PrintDeviceInfo(nullptr);
    EXPECT_TRUE(log.All().empty());
}

TEST_F(GripperManagerTest, ReportShowsNodeAndUsbIdentity) {
    GripperManager::PrintDeviceInfo(testbed.Find(testbed.AddMaster(3, {})).get());
    EXPECT_EQ(log.All(), Report(3));
}

TEST_F(GripperManagerTest, ReportEndsWithoutUsbParent) {
    GripperManager::PrintDeviceInfo(testbed.Find(testbed.Add("tty", "ttyS0")).get());
    EXPECT_EQ(log.All(), (Messages{"   Node: /dev/ttyS0", "   Subsystem: tty", "(No parent dev)"}));
}

TEST_F(GripperManagerTest, MissingPropertiesAreReportedAsEmpty) {
    const Usb none{std::nullopt, std::nullopt, std::nullopt, std::nullopt, std::nullopt};
    const UdevDevice device = testbed.Find(testbed.AddMaster(0, none));
    failing_udev::noDeviceNode = true;
    GripperManager::PrintDeviceInfo(device.get());
    EXPECT_EQ(log.All(), (Messages{"   Node: ", "   Subsystem: tty",
                                   "  VID/PID:  ", "  Manufacturer: ", "  Product: ", "  SN: "}));
}

TEST_F(GripperManagerTest, StartAndEndAreLogged) {
    Start();
    Messages lines = log.OfThisThread();
    ASSERT_EQ(lines.size(), 4U);
    EXPECT_EQ(lines[0], "Initializing GripperManager");
    EXPECT_TRUE(lines[1].starts_with("Library revision: ")) << lines[1];
    EXPECT_TRUE(lines[2].starts_with("Library build date: ")) << lines[2];
    EXPECT_NE(lines[2].find(" at "), std::string::npos);
    EXPECT_EQ(lines[3], "GripperManager started");
    EXPECT_TRUE(manager->GetGrippers().empty());
    log.Clear();
    manager.reset();
    EXPECT_EQ(log.OfThisThread(), Messages{"GripperManager stopped"});
}

TEST_F(GripperManagerTest, AttachedMastersAreAddedAtStart) {
    Connect(0);
    testbed.AddMaster(0, {.name = "MARROK-7"});
    Start();
    const Messages all = log.OfThisThread();
    ASSERT_GT(all.size(), 3U + 9U);
    const Messages expected =
        Report(0, "MARROK-7") + Messages{"Found PELLIX compatible device", "PELLIX detected",
                                         "SerialConnection: Opening device /dev/ttyACM0"};
    EXPECT_EQ(Messages(all.begin() + 3, all.begin() + 12), expected);
    EXPECT_EQ(all.back(), "GripperManager started");
    EXPECT_EQ(manager->GetGrippers(), Lines{"HVA SN:100001"});
    EXPECT_EQ(manager->GetLink("HVA SN:100001")->GetPortName(), "/dev/ttyACM0");
}

TEST_F(GripperManagerTest, OtherDevicesAreReportedAndSkippedAtStart) {
    testbed.Add("tty", "ttyS0");
    testbed.AddMaster(1, {.product = "5741"});
    testbed.Add("net", "eth0");
    Start();
    const Messages all = log.OfThisThread();
    ASSERT_EQ(all.size(), 4U + 4U + 7U);
    Messages found(all.begin() + 3, all.end() - 1);
    if (found[0] != "   Node: /dev/ttyS0") {  // udev lists them in its own order
        std::rotate(found.begin(), found.begin() + 7, found.end());
    }
    EXPECT_EQ(found, (Messages{"   Node: /dev/ttyS0", "   Subsystem: tty", "(No parent dev)",
                               "Not a valid device", "   Node: /dev/ttyACM1", "   Subsystem: tty",
                               "  VID/PID: 0483 5741", "  Manufacturer: Zentrova",
                               "  Product: PELLIX", "  SN: PX1000", "Not a valid device"}));
}

TEST_F(GripperManagerTest, MasterThatCannotBeAddedDoesNotStopTheScan) {
    testbed.AddMaster(0, {});  // without a tty
    Connect(1);
    testbed.AddMaster(1, {});
    testbed.AddMaster(2, {});
    Start();
    EXPECT_EQ(log.Count("Failed to add device"), 2U);
    EXPECT_EQ(log.Count("PELLIX detected"), 3U);
    EXPECT_EQ(manager->GetGrippers().size(), 1U);
}

TEST_F(GripperManagerTest, DeviceThatVanishesDuringTheScanIsSkipped) {
    testbed.AddMaster(0, {});
    failing_udev::noDevice = true;
    Start();
    const Messages all = log.OfThisThread();
    ASSERT_EQ(all.size(), 5U);
    EXPECT_EQ(all[3], "Not a valid device");
}

TEST_F(GripperManagerTest, PluggedInMasterIsAdded) {
    StartAndListen();
    Connect(0);
    Finish(testbed.AddMaster(0, {}));
    const Messages all = OfEvents();
    const Messages expected =
        Messages{"Got Device with action add"} + Report(0) +
        Messages{"Found PELLIX compatible device", "SerialConnection: Opening device /dev/ttyACM0"};
    ASSERT_GT(all.size(), expected.size());
    EXPECT_EQ(Messages(all.begin(), all.begin() + static_cast<long>(expected.size())), expected);
    EXPECT_TRUE(log.Contains("Device added"));
    EXPECT_EQ(manager->GetGrippers(), Lines{"HVA SN:100001"});
}

TEST_F(GripperManagerTest, OtherPluggedInDeviceIsOnlyReported) {
    StartAndListen();
    Finish(testbed.AddMaster(0, {.name = "OTHER"}));
    EXPECT_EQ(OfEvents(), Messages{"Got Device with action add"} + Report(0, "OTHER"));
    log.Clear();
    Finish(testbed.Add("tty", "ttyS0"));
    EXPECT_EQ(OfEvents(), (Messages{"Got Device with action add", "   Node: /dev/ttyS0",
                                    "   Subsystem: tty", "(No parent dev)"}));
}

TEST_F(GripperManagerTest, MasterThatCannotBeAddedIsLoggedAndTheMonitorContinues) {
    StartAndListen();
    const std::string device = testbed.AddMaster(0, {});
    Finish(device);
    EXPECT_EQ(OfEvents(), Messages{"Got Device with action add"} + Report(0) +
                              Messages({"Found PELLIX compatible device",
                                        "SerialConnection: Opening device /dev/ttyACM0",
                                        "SerialConnection: Open call failed",
                                        "Failed to open serial connection on /dev/ttyACM0",
                                        "Failed to initialize PELLIX", "Failed to add device"}));
    Connect(0);
    log.Clear();
    testbed.SendEvent(device, "add");
    EXPECT_TRUE(WaitForLine("Device added"));
}

TEST_F(GripperManagerTest, RepeatedAddCreatesNoSecondLink) {
    Connect(0);
    const std::string device = testbed.AddMaster(0, {});
    StartAndListen();
    testbed.SendEvent(device, "add");
    Finish(device);
    EXPECT_TRUE(log.Contains("PELLIX has a link already: /dev/ttyACM0"));
    EXPECT_EQ(log.Count("SerialConnection: Opening device /dev/ttyACM0"), 0U);
    EXPECT_EQ(manager->GetGrippers().size(), 1U);
}

TEST_F(GripperManagerTest, UnpluggedMasterIsRemovedWithoutACheckOfItsIdentity) {
    FakeMaster& master = Connect(0);
    const std::string device = testbed.AddMaster(0, {});
    StartAndListen();
    testbed.Disconnect(0);
    master.Unplug();
    testbed.SendEvent(device, "remove");
    Finish(device);
    EXPECT_EQ(log.Count("Got Device with action remove"), 1U);
    EXPECT_EQ(log.Count("Removing /dev/ttyACM0"), 1U);
    EXPECT_EQ(log.Count("PELLIX removed: /dev/ttyACM0"), 1U);
    EXPECT_TRUE(log.BeginningWith("   Node").empty());
    EXPECT_TRUE(manager->GetGrippers().empty());
}

TEST_F(GripperManagerTest, RemovalOfAnUnknownNodeChangesNothing) {
    const std::string device = testbed.Add("tty", "ttyS0");
    StartAndListen();
    testbed.SendEvent(device, "remove");
    Finish(device);
    EXPECT_EQ(OfEvents(), (Messages{"Got Device with action remove", "Removing /dev/ttyS0"}));
}

TEST_F(GripperManagerTest, OtherActionsAreLoggedAndIgnored) {
    const std::string device = testbed.AddMaster(0, {});
    StartAndListen();
    for (const char* action : {"change", "bind"}) {
        log.Clear();
        testbed.SendEvent(device, action);
        Finish(device);
        EXPECT_EQ(OfEvents(), (Messages{std::string("Got Device with action ") + action,
                                        std::string("Unknown udev action: ") + action}));
    }
}

TEST_F(GripperManagerTest, EventsOfOtherSubsystemsAreFilteredOut) {
    const std::string device = testbed.Add("tty", "ttyS0");
    StartAndListen();
    testbed.Add("net", "eth0");
    Finish(device);
    EXPECT_TRUE(OfEvents().empty());
}

TEST_F(GripperManagerTest, EventsWithoutActionOrNodeAreHarmless) {
    const std::string device = testbed.AddMaster(0, {});
    StartAndListen();
    failing_udev::noAction = true;
    testbed.SendEvent(device, "add");
    EXPECT_TRUE(WaitForLine("Unknown udev action: "));
    EXPECT_TRUE(log.Contains("Got Device with action "));
    failing_udev::noAction = false;
    failing_udev::noDeviceNode = true;
    log.Clear();
    testbed.SendEvent(device, "remove");
    EXPECT_TRUE(WaitForLine("Removing "));
}

TEST_F(GripperManagerTest, MissingEventIsLoggedAndTheMonitorContinues) {
    const std::string device = testbed.Add("tty", "ttyS0");
    StartAndListen();
    testbed.SendEvent(device, "nonsense");  // udev creates no device for it
    Finish(device);
    EXPECT_EQ(OfEvents(), Messages{"No device from receive_device(). An error occured."});
}

TEST_F(GripperManagerTest, ExceptionInTheMonitorIsLoggedAndTheMonitorContinues) {
    const std::string device = testbed.Add("tty", "ttyS0");
    StartAndListen();
    failing_udev::throwingAction = true;
    testbed.SendEvent(device, "change");
    EXPECT_TRUE(WaitForLine("Exception in monitor thread: std::bad_alloc"));
    failing_udev::throwingAction = false;
    Finish(device);
}

TEST_F(GripperManagerTest, MonitorThreadThatCannotBeStartedIsLogged) {
    failing_udev::noMonitor = true;  // otherwise the test would have to wait for the monitor
    {
        const support::FailingAllocations failure(
            {.smallest = sizeof(std::thread), .largest = sizeof(std::thread)});
        Start();
    }
    const Messages all = log.OfThisThread();
    ASSERT_EQ(all.size(), 5U);
    EXPECT_EQ(all[3], "Can't create udev monitor: masters plugged in from now on are not seen");
    EXPECT_EQ(all[4], "GripperManager started");
}

TEST_F(GripperManagerTest, MonitorThatCannotBeCreatedIsLoggedOnce) {
    failing_udev::noMonitor = true;
    Connect(0);
    testbed.AddMaster(0, {});
    Start();
    const std::string line =
        "Can't create udev monitor: masters plugged in from now on are not seen";
    EXPECT_TRUE(WaitForLine(line));
    EXPECT_EQ(manager->GetGrippers().size(), 1U);
    EXPECT_EQ(log.Count(line), 1U);
    EXPECT_FALSE(log.Contains("No device from receive_device(). An error occured."));
}

TEST_F(GripperManagerTest, WithoutUdevTheProcessEndsWithStatusOne) {
    failing_udev::noContext = true;
    EXPECT_EXIT(GripperManager(), testing::ExitedWithCode(EXIT_FAILURE), "");
    EXPECT_EQ(log.All().back(), "Can't create udev");
}

TEST_F(GripperManagerTest, DestructorDestroysItsLinks) {
    Connect(0);
    testbed.AddMaster(0, {});
    Start();
    // A pending request of the state thread is logged, too.
    ASSERT_TRUE(WaitForLine("Pending command PDOUT deleted (Status: 0)."));
    log.Clear();
    manager.reset();
    EXPECT_EQ(log.OfThisThread(),
              (Messages{"PELLIX 0 removed", "SerialConnection: Closed device /dev/ttyACM0",
                        "GripperManager stopped"}));
}

// The monitor thread outlives the manager and must not access its members.
TEST_F(GripperManagerTest, DestructorMayRunWhileAMasterIsBeingAdded) {
    StartAndListen();
    FakeMaster& master = Connect(0);
    master.SetAnswers("ID?", {""});
    const std::string device = testbed.AddMaster(0, {});
    EXPECT_TRUE(master.WaitForRequest("ID?"));
    manager.reset();
    EXPECT_EQ(log.OfThisThread().back(), "GripperManager stopped");
    master.Send("FIN ID\n");
    EXPECT_TRUE(WaitForLine("SerialConnection: Closed device /dev/ttyACM0"));
    testbed.SendEvent(device, "remove");
    Finish(device);
}
