#include "pellix/LinkRegistry.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <iterator>
#include <list>
#include <string>
#include <thread>
#include <vector>

#include "pellix/Protocol.h"
#include "tests/support/Allocations.h"
#include "tests/support/FailingLock.h"
#include "tests/support/FakeMaster.h"
#include "tests/support/LogCapture.h"
#include "tests/support/WaitFor.h"

using pellix::Pellix;
using std::chrono::milliseconds;
using std::chrono::seconds;
using support::FakeMaster;
using support::LogCapture;
using support::Measure;
using support::Messages;
using support::WaitFor;
using Lines = std::vector<std::string>;

class LinkRegistryTest : public testing::Test {
protected:
    void TearDown() override {
        for (const FakeMaster& master : masters) {
            registry.RemoveDevice(master.Path());
        }
    }

    /// Creates a master with an HVA of this serial number and does not add it to the registry.
    FakeMaster& Make(const std::string& serial = "1") {
        FakeMaster& master = masters.emplace_back();
        master.SetValue("PARAM[21][0]", pellix::FormatByteList({serial.begin(), serial.end()}));
        master.StreamEvery(milliseconds(5));  // short reads let links end quickly
        return master;
    }

    FakeMaster& Plug(const std::string& serial = "1") {
        FakeMaster& master = Make(serial);
        EXPECT_EQ(registry.AddDevice(master.Path()), 0);
        return master;
    }

    /// Answers the ID query of the initialisation without an ID; does not answer later ones.
    FakeMaster& PlugSilentWithoutId() {
        FakeMaster& master = Make();
        master.SetAnswers("ID?", {"FIN ID\n", ""});
        EXPECT_EQ(registry.AddDevice(master.Path()), 0);
        return master;
    }

    /// @return whether a lookup finds the link on `master`
    bool Finds(const std::string& deviceString, const FakeMaster& master) {
        const LinkInUse link = registry.GetLink(deviceString);
        return link != nullptr && link->GetPortName() == master.Path();
    }

    /// @return messages of the registry itself
    Messages RegistryLines() const {
        Messages found;
        for (const std::string& message : log.OfThisThread()) {
            if (message.starts_with("PELLIX") || message.starts_with("Removing") ||
                message.starts_with("Failed")) {
                found.push_back(message);
            }
        }
        return found;
    }

    LogCapture log;
    LinkRegistry registry;
    std::list<FakeMaster> masters;
};

TEST_F(LinkRegistryTest, EmptyRegistryListsNothingAndLogsNothing) {
    EXPECT_TRUE(registry.GetGrippers().empty());
    EXPECT_TRUE(log.All().empty());
}

TEST_F(LinkRegistryTest, LinkIsFoundByItsDeviceString) {
    const FakeMaster& first = Plug("1");
    const FakeMaster& second = Plug("2");
    EXPECT_TRUE(Finds("HVA SN:1", first));
    EXPECT_TRUE(Finds("HVA SN:2", second));
    EXPECT_TRUE(log.BeginningWith("Device '").empty());
}

TEST_F(LinkRegistryTest, DeviceStringsAreComparedExactly) {
    Plug("1");
    for (const std::string wanted :
         {"HVA SN:1 ", "hva SN:1", "HVA SN:", "HVA", "", "HVA SN:11", " HVA SN:1"}) {
        EXPECT_EQ(registry.GetLink(wanted), nullptr);
        EXPECT_EQ(log.OfThisThread().back(), "Device '" + wanted + "' not found");
    }
}

TEST_F(LinkRegistryTest, MasterOfTheOtherProductIsFoundAndListed) {
    FakeMaster& master = Make();
    master.SetValue("ID", "MARROK-7");
    EXPECT_EQ(registry.AddDevice(master.Path()), 0);
    EXPECT_TRUE(Finds("HVA SN:1", master));
    EXPECT_EQ(registry.GetGrippers(), Lines{"HVA SN:1"});
}

TEST_F(LinkRegistryTest, MasterOfAnyOtherProductIsNotFound) {
    FakeMaster& master = Make();
    master.SetValue("ID", "PELLIX-2");
    EXPECT_EQ(registry.AddDevice(master.Path()), 0);
    EXPECT_EQ(registry.GetLink("HVA SN:1"), nullptr);
    EXPECT_EQ(log.OfThisThread().back(), "Device 'HVA SN:1' not found");
}

TEST_F(LinkRegistryTest, FirstOfEqualDeviceStringsIsFound) {
    const FakeMaster& first = Plug("1");
    Plug("1");
    EXPECT_TRUE(Finds("HVA SN:1", first));
    EXPECT_EQ(registry.GetGrippers(), (Lines{"HVA SN:1", "HVA SN:1"}));
}

TEST_F(LinkRegistryTest, GrippersWithDeviceStringAreListedInOrder) {
    Plug("2");
    FakeMaster& unconnected = Make("3");
    unconnected.SetValue("MODE", "0");
    EXPECT_EQ(registry.AddDevice(unconnected.Path()), 0);
    Plug("1");
    log.Clear();
    EXPECT_EQ(registry.GetGrippers(), (Lines{"HVA SN:2", "HVA SN:1"}));
    EXPECT_EQ(log.OfThisThread(),
              (Messages{"Pellix not connected", "Device string is empty (device not connected)"}));
}

TEST_F(LinkRegistryTest, ConnectedLinkWithoutDeviceStringIsLoggedSeparately) {
    FakeMaster& master = Make();
    master.SetValue("MODE", "2");
    EXPECT_EQ(registry.AddDevice(master.Path()), 0);
    EXPECT_TRUE(WaitFor([this] { return log.Contains("STARTUP"); }));
    EXPECT_TRUE(WaitFor([this] {
        log.Clear();
        registry.GetGrippers();
        return !log.Contains("Pellix not connected");
    }));
    EXPECT_EQ(log.OfThisThread().back(), "Device string is empty (but device connected)");
}

TEST_F(LinkRegistryTest, MasterWithoutIdIsNotListedAndQueriedAgainByEveryCall) {
    FakeMaster& master = Make();
    master.SetAnswers("ID?", {"FIN ID\n"});
    EXPECT_EQ(registry.AddDevice(master.Path()), 0);
    log.Clear();
    for (std::size_t call = 1; call <= 2; ++call) {
        EXPECT_TRUE(registry.GetGrippers().empty());
        EXPECT_EQ(log.Count("Invalid device ID"), call);
        EXPECT_EQ(master.Count("ID?"), 1 + call);
    }
    master.SetValue("ID", "PELLIX");
    EXPECT_TRUE(registry.GetGrippers().empty());
    EXPECT_EQ(registry.GetGrippers(), Lines{"HVA SN:1"});
    EXPECT_EQ(master.Count("ID?"), 4U);
}

TEST_F(LinkRegistryTest, LookupWaitsForTheLockForATenthOfASecond) {
    Plug("1");
    const FakeMaster& silent = PlugSilentWithoutId();
    std::thread holder([this] { registry.GetGrippers(); });  // holds the lock for a second
    EXPECT_TRUE(silent.WaitForRequest("ID?", 2));
    log.Clear();
    const auto waited = Measure([this] { EXPECT_EQ(registry.GetLink("HVA SN:1"), nullptr); });
    EXPECT_GE(waited, milliseconds(100));
    EXPECT_LT(waited, milliseconds(900));
    EXPECT_EQ(log.OfThisThread(), Messages{"Timeout while trying to acquire lock within 100 ms"});
    holder.join();
    EXPECT_NE(registry.GetLink("HVA SN:1"), nullptr);
}

TEST_F(LinkRegistryTest, ListingWaitsForTheLockWithoutALimit) {
    const FakeMaster& silent = PlugSilentWithoutId();
    std::atomic<bool> released = false;
    std::thread holder([&] {
        const auto lock = registry.Close();
        std::thread([this] { EXPECT_EQ(registry.GetLink("HVA SN:1"), nullptr); }).join();
        released = true;
    });
    EXPECT_TRUE(WaitFor([this] { return log.Contains("PELLIX 0 removed"); }));
    EXPECT_TRUE(registry.GetGrippers().empty());
    EXPECT_TRUE(released);
    holder.join();
    EXPECT_EQ(silent.Count("ID?"), 1U);
}

TEST_F(LinkRegistryTest, SlowMasterDoesNotDelayLookups) {
    Plug("1");
    FakeMaster& slow = Make("2");
    slow.SetAnswers("ID?", {""});
    std::thread adder([&] { EXPECT_EQ(registry.AddDevice(slow.Path()), 0); });
    EXPECT_TRUE(slow.WaitForRequest("ID?"));
    EXPECT_NE(registry.GetLink("HVA SN:1"), nullptr);
    EXPECT_EQ(registry.GetGrippers(), Lines{"HVA SN:1"});
    slow.Send("FIN ID\n");
    adder.join();
}

TEST_F(LinkRegistryTest, MasterThatCannotBeOpenedIsAFailure) {
    const std::string path = Make().Path() + "/none";
    const std::size_t before = support::LiveBytes();
    EXPECT_EQ(registry.AddDevice(path), -1);
    EXPECT_EQ(support::LiveBytes(), before);  // the thrown pointer was deleted
    EXPECT_EQ(
        log.All(),
        (Messages{"SerialConnection: Opening device " + path, "SerialConnection: Open call failed",
                  "Failed to open serial connection on " + path, "Failed to initialize PELLIX"}));
    EXPECT_TRUE(registry.GetGrippers().empty());
}

TEST_F(LinkRegistryTest, MasterThatCannotBeInitialisedFailsWithItsResult) {
    FakeMaster& master = Make();
    master.SetAnswers("ID?", {"ERR ID 7\n"});
    EXPECT_EQ(registry.AddDevice(master.Path()), 7);
    Messages lines = log.OfThisThread();
    ASSERT_GE(lines.size(), 2U);
    EXPECT_EQ(lines.back(), "Failed to initialize new device: 7");
    lines.pop_back();
    EXPECT_EQ(lines.back(), "SerialConnection: Closed device " + master.Path());
    EXPECT_EQ(registry.GetLink("HVA SN:1"), nullptr);
}

TEST_F(LinkRegistryTest, LinkThatCannotBeListedIsDestroyedAndReportedAsAdded) {
    const FakeMaster& master = Make();
    {
        // The first command of the link allocates the other list of pointers.
        const support::FailingAllocations failure(
            {.smallest = sizeof(Pellix*), .largest = sizeof(Pellix*), .spared = 1});
        EXPECT_EQ(registry.AddDevice(master.Path()), 0);
    }
    EXPECT_EQ(log.OfThisThread().back(), "Failed to add PELLIX to list");
    EXPECT_TRUE(log.Contains("SerialConnection: Closed device " + master.Path()));
    EXPECT_EQ(registry.GetLink("HVA SN:1"), nullptr);
}

// Two links on one tty would take each other's replies.
TEST_F(LinkRegistryTest, NodeThatHasALinkGetsNoSecondOne) {
    const FakeMaster& master = Plug();
    const LinkInUse link = registry.GetLink("HVA SN:1");
    log.Clear();
    EXPECT_EQ(registry.AddDevice(master.Path()), 0);
    EXPECT_EQ(log.OfThisThread(), Messages{"PELLIX has a link already: " + master.Path()});
    EXPECT_EQ(registry.GetLink("HVA SN:1"), link);
    EXPECT_EQ(registry.GetGrippers().size(), 1U);
    EXPECT_EQ(master.Count("MODE?"), 1U);
}

TEST_F(LinkRegistryTest, RemovalStopsAndDestroysTheLink) {
    const FakeMaster& master = Plug("1");
    const FakeMaster& other = Plug("2");
    // A pending request of the state thread is logged, too.
    ASSERT_TRUE(WaitFor([&] { return log.BeginningWith("Pending command PDOUT").size() == 2; }));
    log.Clear();
    registry.RemoveDevice(master.Path());
    EXPECT_EQ(log.OfThisThread(),
              (Messages{"Removing " + master.Path(), "PELLIX removed: " + master.Path(),
                        "SerialConnection: Closed device " + master.Path()}));
    for (const char* thread : {"Parser", "Timeout monitor", "State"}) {
        EXPECT_TRUE(log.Contains(std::string(thread) + " thread terminated")) << thread;
    }
    EXPECT_EQ(registry.GetLink("HVA SN:1"), nullptr);
    EXPECT_TRUE(Finds("HVA SN:2", other));
}

TEST_F(LinkRegistryTest, RemovalOfAnUnknownNodeChangesNothing) {
    const FakeMaster& master = Plug();
    log.Clear();
    registry.RemoveDevice("/dev/ttyS0");
    EXPECT_EQ(log.OfThisThread(), Messages{"Removing /dev/ttyS0"});
    EXPECT_TRUE(Finds("HVA SN:1", master));
}

TEST_F(LinkRegistryTest, RemovedNodeCanBeAddedAgain) {
    const FakeMaster& master = Plug();
    registry.RemoveDevice(master.Path());
    EXPECT_EQ(registry.AddDevice(master.Path()), 0);
    EXPECT_TRUE(Finds("HVA SN:1", master));
}

TEST_F(LinkRegistryTest, ErrorWhileRemovingIsLogged) {
    const FakeMaster& master = Plug();
    log.Clear();
    {
        const support::FailingLock failure(1);  // locking the registry succeeds
        registry.RemoveDevice(master.Path());
    }
    EXPECT_EQ(RegistryLines(),
              (Messages{"Removing " + master.Path(), "PELLIX removed: " + master.Path(),
                        "Failed to remove PELLIX from list: " + master.Path()}));
    EXPECT_EQ(registry.GetLink("HVA SN:1"), nullptr);
}

TEST_F(LinkRegistryTest, LinkIsNotDestroyedWhileACallUsesIt) {
    const FakeMaster& master = Plug("1");
    const FakeMaster& other = Plug("2");
    LinkInUse link = registry.GetLink("HVA SN:1");
    ASSERT_NE(link, nullptr);
    std::atomic<bool> removed = false;
    std::thread remover([&] {
        registry.RemoveDevice(master.Path());
        removed = true;
    });
    EXPECT_TRUE(WaitFor([&] { return log.Contains("PELLIX removed: " + master.Path()); }));

    // The link still answers, other links can be used, and a lookup does not find this one.
    EXPECT_EQ(link->GetDeviceString(), "HVA SN:1");
    EXPECT_EQ(link->RequestID(), pellix::kResultNoCommand);
    for (int i = 0; i < 20; ++i) {
        ASSERT_TRUE(Finds("HVA SN:2", other));
    }
    EXPECT_EQ(registry.GetLink("HVA SN:1"), nullptr);
    EXPECT_EQ(registry.GetGrippers(), Lines{"HVA SN:2"});
    EXPECT_FALSE(log.Contains("SerialConnection: Closed device " + master.Path()));
    EXPECT_FALSE(removed);

    link.reset();
    remover.join();
    EXPECT_TRUE(log.Contains("SerialConnection: Closed device " + master.Path()));
}

TEST_F(LinkRegistryTest, RemovalWaitsForEveryCallThatUsesTheLink) {
    const FakeMaster& master = Plug();
    LinkInUse first = registry.GetLink("HVA SN:1");
    LinkInUse second = registry.GetLink("HVA SN:1");
    std::thread remover([&] { registry.RemoveDevice(master.Path()); });
    EXPECT_TRUE(WaitFor([&] { return log.Contains("PELLIX removed: " + master.Path()); }));
    first.reset();
    EXPECT_EQ(second->GetDeviceString(), "HVA SN:1");
    EXPECT_FALSE(log.Contains("SerialConnection: Closed device " + master.Path()));
    second.reset();
    remover.join();
}

TEST_F(LinkRegistryTest, UnansweredCallDelaysARemovalByItsTimeoutAtMost) {
    FakeMaster& master = Plug();
    master.SetAnswers("OPERATE()", {""});
    std::atomic<unsigned> result = 0;
    std::thread caller([&] { result = registry.GetLink("HVA SN:1")->Operate(); });
    EXPECT_TRUE(master.WaitForRequest("OPERATE()"));
    EXPECT_LT(Measure([&] { registry.RemoveDevice(master.Path()); }), seconds(5));
    caller.join();
    EXPECT_EQ(result, pellix::kResultTimeout);
}

class LinkRegistryCloseTest : public LinkRegistryTest,
                              public testing::WithParamInterface<std::size_t> {};

TEST_P(LinkRegistryCloseTest, EveryOtherLinkIsDestroyed) {
    for (std::size_t i = 0; i < GetParam(); ++i) {
        Plug(std::to_string(i));
    }
    log.Clear();
    { const auto lock = registry.Close(); }
    Messages expected;
    for (std::size_t i = 0; i < (GetParam() + 1) / 2; ++i) {
        expected.push_back("PELLIX " + std::to_string(i) + " removed");
    }
    EXPECT_EQ(RegistryLines(), expected);
    Lines left;
    for (std::size_t i = 0; i < GetParam(); ++i) {
        const std::string closed = "SerialConnection: Closed device " +
                                   std::next(masters.begin(), static_cast<long>(i))->Path();
        EXPECT_EQ(log.Contains(closed), i % 2 == 0) << i;
        if (i % 2 == 1) {
            left.push_back("HVA SN:" + std::to_string(i));
        }
    }
    EXPECT_EQ(registry.GetGrippers(), left);
}

INSTANTIATE_TEST_SUITE_P(UpToFiveLinks, LinkRegistryCloseTest, testing::Range<std::size_t>(0, 6));

TEST_F(LinkRegistryTest, CloseKeepsTheLock) {
    Plug();
    const auto lock = registry.Close();
    std::thread([this] { EXPECT_EQ(registry.GetLink("HVA SN:1"), nullptr); }).join();
    EXPECT_TRUE(log.Contains("Timeout while trying to acquire lock within 100 ms"));
}

TEST_F(LinkRegistryTest, CloseWaitsForCallsThatStillUseALink) {
    FakeMaster& master = Plug();
    master.SetAnswers("OPERATE()", {""});
    std::atomic<unsigned> result = 0;
    std::thread caller([&] { result = registry.GetLink("HVA SN:1")->Operate(); });
    EXPECT_TRUE(master.WaitForRequest("OPERATE()"));
    const auto waited = Measure([this] { const auto lock = registry.Close(); });
    caller.join();
    EXPECT_EQ(result, pellix::kResultTimeout);
    EXPECT_LT(waited, seconds(5));
}

TEST_F(LinkRegistryTest, CloseDoesNotWaitForACallForever) {
    constexpr milliseconds kPatience(50);
    LinkRegistry impatient(kPatience);
    EXPECT_EQ(impatient.AddDevice(Make().Path()), 0);
    LinkInUse link = impatient.GetLink("HVA SN:1");
    const auto waited = Measure([&] { const auto lock = impatient.Close(); });
    EXPECT_GE(waited, kPatience);
    EXPECT_TRUE(log.Contains("PELLIX 0 removed"));
    (void)link.release();  // already destroyed
}

TEST_F(LinkRegistryTest, UnknownDeviceStringIsLoggedOnOneLine) {
    EXPECT_EQ(registry.GetLink("A\n03:12:00 1 TavrikDaemon stopped\r\t\\n"), nullptr);
    EXPECT_EQ(log.All(),
              Messages{"Device 'A\\n03:12:00 1 TavrikDaemon stopped\\r\t\\n' not found"});
}

TEST_F(LinkRegistryTest, SilentMastersDelayCloseOnlyOnce) {
    for (int i = 0; i < 5; ++i) {
        Plug().StreamEvery(milliseconds(0));
    }
    const auto waited = Measure([this] { const auto lock = registry.Close(); });
    EXPECT_LT(waited, milliseconds(2500));  // three threads are in a read of one second
    for (FakeMaster& master : masters) {
        master.StreamEvery(milliseconds(5));
    }
}

TEST_F(LinkRegistryTest, ErrorWhileClosingIsLogged) {
    Plug();
    log.Clear();
    {
        const support::FailingAllocations failure({});  // for the log line about the removal
        const auto lock = registry.Close();
    }
    EXPECT_EQ(RegistryLines(), Messages{"Failed to remove PELLIX 0 from queue"});
}

TEST_F(LinkRegistryTest, ClosedRegistryAcceptsNoLinks) {
    { const auto lock = registry.Close(); }
    const FakeMaster& master = Plug();
    EXPECT_EQ(registry.GetLink("HVA SN:1"), nullptr);
    EXPECT_TRUE(log.Contains("SerialConnection: Closed device " + master.Path()));
}

TEST_F(LinkRegistryTest, LinkAddedDuringCloseIsNotAccepted) {
    FakeMaster& master = Make();
    master.SetAnswers("ID?", {""});
    std::thread adder([&] { EXPECT_EQ(registry.AddDevice(master.Path()), 0); });
    EXPECT_TRUE(master.WaitForRequest("ID?"));
    { const auto lock = registry.Close(); }
    master.Send("FIN ID\n");
    adder.join();
    EXPECT_EQ(registry.GetLink("HVA SN:1"), nullptr);
    EXPECT_TRUE(log.Contains("SerialConnection: Closed device " + master.Path()));
}

TEST_F(LinkRegistryTest, CallsContinueWhileMastersComeAndGo) {
    const FakeMaster& coming = Make("1");
    const FakeMaster& staying = Plug("2");
    std::atomic<bool> running = true;
    std::atomic<int> calls = 0;
    std::vector<std::thread> callers;
    for (const std::string wanted : {"HVA SN:1", "HVA SN:2"}) {
        callers.emplace_back([&, wanted] {
            while (running) {
                if (const LinkInUse link = registry.GetLink(wanted)) {
                    link->ReadParameter(19, 0);
                    ++calls;
                }
                registry.GetGrippers();
            }
        });
    }
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(registry.AddDevice(coming.Path()), 0);
        const int before = calls;
        EXPECT_TRUE(WaitFor([&] { return calls > before; }));
        registry.RemoveDevice(coming.Path());
        log.Clear();
    }
    running = false;
    for (std::thread& caller : callers) {
        caller.join();
    }
    EXPECT_TRUE(Finds("HVA SN:2", staying));
}
