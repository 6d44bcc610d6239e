#include "pellix/Pellix.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "pellix/Protocol.h"
#include "tests/support/FakeMaster.h"
#include "tests/support/LogCapture.h"
#include "tests/support/WaitFor.h"
#include "tests/unit/pellix/PellixTest.h"

using pellix::Pellix;
using std::chrono::milliseconds;
using std::chrono::seconds;
using support::Measure;
using support::Messages;
using support::WaitFor;
using Bytes = std::vector<std::uint8_t>;
using Lines = std::vector<std::string>;

namespace {

/// @return number of threads of this process with this timer slack in nanoseconds
int ThreadsWithTimerSlack(const std::string& slack) {
    int count = 0;
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        std::ifstream file("/proc/" + task.path().filename().string() + "/timerslack_ns");
        std::string value;
        file >> value;
        count += value == slack ? 1 : 0;
    }
    return count;
}

}  // namespace

TEST_F(PellixTest, FailedOpenIsLoggedAndRethrown) {
    const std::string path = master.Path() + "/none";
    try {
        const Pellix other(path);
        ADD_FAILURE() << "nothing was thrown";
    } catch (std::exception* failure) {  // NOLINT(misc-throw-by-value-catch-by-reference)
        delete failure;
    }
    EXPECT_EQ(log.All(), (Messages{"SerialConnection: Opening device " + path,
                                   "SerialConnection: Open call failed",
                                   "Failed to open serial connection on " + path}));
}

TEST_F(PellixTest, NewLinkHasNoData) {
    Open();
    log.Clear();
    EXPECT_EQ(link->GetPortName(), master.Path());
    EXPECT_EQ(link->GetID(), "");
    EXPECT_EQ(link->GetDeviceMode(), 0);
    EXPECT_FALSE(link->IsConnected());
    EXPECT_TRUE(log.All().empty());
    EXPECT_EQ(link->GetDeviceString(), "");
    EXPECT_EQ(log.All(), Messages{"Pellix not initialized"});
    log.Clear();
    EXPECT_TRUE(link->GetDeviceInfo().empty());
    EXPECT_EQ(log.All(), Messages{"DeviceInfo"});
    EXPECT_TRUE(master.Requests().empty());
}

TEST_F(PellixTest, LinkWithoutInitIsDestroyedAtOnce) {
    Open();
    log.Clear();
    EXPECT_LT(Measure([this] { link.reset(); }), milliseconds(900));
    EXPECT_EQ(log.All(), Messages{"SerialConnection: Closed device " + master.Path()});
}

TEST_F(PellixTest, EveryRequestSendsItsLine) {
    InitAndSettle();
    const std::vector<std::pair<std::function<unsigned()>, Lines>> requests = {
        {[this] { return link->RequestID(); }, {"ID?"}},
        {[this] { return link->RequestMode(); }, {"MODE?"}},
        {[this] { return link->RequestDeviceInfo(); }, {"DEVINFO?"}},
        {[this] { return link->RequestDeviceString(); }, {"PARAM[19][0]?", "PARAM[21][0]?"}},
        {[this] { return link->RequestPDOUT(); }, {"PDOUT?"}},
        {[this] { return link->ReadParameter(19, 0); }, {"PARAM[19][0]?"}},
        {[this] { return link->WriteParameter(5, 0, {}); }, {"PARAM[5][0]=[]"}},
        {[this] { return link->WriteParameter(5, 0, {0}); }, {"PARAM[5][0]=[0]"}},
        {[this] {
             return link->WriteParameter(5, 0, {10, 255});
         },
         {"PARAM[5][0]=[a,ff]"}},
        {[this] { return link->WriteParameter(351, 4294967295, {1}); },
         {"PARAM[351][4294967295]=[1]"}},
        {[this] {
             return link->WritePDOUT({3, 16});
         },
         {"PDOUT=[3,10]"}},
        {[this] { return link->SetDOUTINFO(7); }, {"DOUTINFO=7"}},
        {[this] { return link->SetROBINPUT(0); }, {"ROBINPUT=0"}},
        {[this] { return link->SetROBOUTPUT(4294967295); }, {"ROBOUTPUT=4294967295"}},
        {[this] { return link->StoreConfig(); }, {"STORECONFIG()"}},
        {[this] { return link->SysReset(); }, {"SYSRESET()"}},
        {[this] { return link->Operate(); }, {"OPERATE()"}},
        {[this] { return link->Restart(); }, {"RESTART()"}},
        {[this] { return link->Fallback(true); }, {"FALLBACK(1)"}},
        {[this] { return link->Fallback(false); }, {"FALLBACK(0)"}},
    };
    for (const auto& [request, lines] : requests) {
        master.ClearRequests();
        EXPECT_EQ(request(), pellix::kResultOk) << lines[0];
        EXPECT_EQ(master.Requests(), lines);
    }
}

TEST_F(PellixTest, ErrorCodeOfTheMasterIsTheResult) {
    InitAndSettle();
    master.SetAnswers("PARAM[40][0]?", {"ACK PARAM[40][0]\nERR PARAM[40][0] 3\n"});
    EXPECT_EQ(link->ReadParameter(40, 0), 3U);
    master.SetAnswers("OPERATE()", {"ERR OPERATE 4711\n"});
    EXPECT_EQ(link->Operate(), 4711U);
}

// The command fails, but its error code is that of a success.
TEST_F(PellixTest, ErrorWithCodeZeroIsASuccess) {
    InitAndSettle();
    master.SetAnswers("OPERATE()", {"ERR OPERATE 0\n"});
    EXPECT_EQ(link->Operate(), pellix::kResultOk);
}

TEST_F(PellixTest, SerialNumberIsNotReadIfTheProductIdFails) {
    InitAndSettle();
    master.SetAnswers("PARAM[19][0]?", {"ERR PARAM[19][0] 33\n"});
    EXPECT_EQ(link->RequestDeviceString(), 33U);
    EXPECT_EQ(master.Requests(), Lines{"PARAM[19][0]?"});
}

TEST_F(PellixTest, FailedSerialNumberIsTheResultOfTheDeviceString) {
    InitAndSettle();
    master.SetAnswers("PARAM[21][0]?", {"ERR PARAM[21][0] 34\n"});
    EXPECT_EQ(link->RequestDeviceString(), 34U);
    EXPECT_EQ(link->GetDeviceString(), "HVA SN:100001");  // the value stored before
}

TEST_F(PellixTest, DataLineAloneFinishesAQuery) {
    InitAndSettle();
    master.SetAnswers("PARAM[64][1]?", {"PARAM[64][1]=[5]\n"});
    EXPECT_EQ(link->ReadParameter(64, 1), pellix::kResultOk);
    EXPECT_EQ(link->GetParameter(64, 1), Bytes{5});
}

TEST_F(PellixTest, FinAloneFinishesAQuery) {
    InitAndSettle();
    master.SetAnswers("PARAM[64][1]?", {"FIN PARAM[64][1]\n"});
    EXPECT_EQ(link->ReadParameter(64, 1), pellix::kResultOk);
    EXPECT_TRUE(link->GetParameter(64, 1).empty());
}

TEST_F(PellixTest, EventLineFinishesNoQuery) {
    InitAndSettle();
    master.SetAnswers("PARAM[64][1]?", {"@PARAM[64][1]=[5]\n"});
    unsigned result = 0;
    const auto waited = Measure([&] { result = link->ReadParameter(64, 1); });
    EXPECT_EQ(result, pellix::kResultTimeout);
    EXPECT_GT(waited, seconds(1));
    EXPECT_EQ(link->GetParameter(64, 1), Bytes{5});
}

TEST_F(PellixTest, LateAnswerIsDropped) {
    InitAndSettle();
    master.SetAnswers("OPERATE()", {"ACK OPERATE\n"});
    EXPECT_EQ(link->Operate(), pellix::kResultTimeout);
    EXPECT_TRUE(log.Contains("Pending command OPERATE deleted (Status: 5)."));
    master.Send("FIN OPERATE\n");
    EXPECT_TRUE(
        WaitFor([this] { return log.Contains("Active command OPERATE could not be found"); }));
    EXPECT_EQ(link->Restart(), pellix::kResultOk);
}

TEST_F(PellixTest, RepliesInSeveralReadsFinishTheRequestIfTheirLinesAreWhole) {
    InitAndSettle();
    master.SetAnswers("OPERATE()", {""});
    std::thread pieces([this] {
        master.WaitForRequest("OPERATE()");
        master.Send("ACK OPERATE\n");
        master.Send("FIN OPERATE\n");
    });
    EXPECT_EQ(link->Operate(), pellix::kResultOk);
    pieces.join();
}

TEST_F(PellixTest, NothingIsSentAfterStop) {
    InitAndSettle();
    link->Stop();
    EXPECT_TRUE(WaitFor([this] { return log.Contains("State thread terminated"); }));
    log.Clear();
    EXPECT_EQ(link->RequestID(), pellix::kResultNoCommand);
    EXPECT_EQ(link->WritePDOUT({0, 0}), pellix::kResultNoCommand);
    EXPECT_EQ(link->Operate(), pellix::kResultNoCommand);
    EXPECT_EQ(link->RequestDeviceString(), pellix::kResultNoCommand);
    EXPECT_EQ(log.OfThisThread(), Messages(4, "Device has been removed"));
    EXPECT_TRUE(master.Requests().empty());
}

TEST_F(PellixTest, StoppedLinkStillEndsPendingRequests) {
    InitAndSettle();
    master.SetAnswers("OPERATE()", {""});
    std::atomic<unsigned> result = 0;
    std::thread caller([&] { result = link->Operate(); });
    EXPECT_TRUE(master.WaitForRequest("OPERATE()"));
    link->Stop();
    caller.join();
    EXPECT_EQ(result, pellix::kResultTimeout);
}

// After an unplug in mode 3, each request of the state thread fails at once.
TEST_F(PellixTest, StoppedLinkDoesNotRetryRequests) {
    master.SetValue("MODE", "3");
    master.SetAnswers("DEVINFO?", {"DEVINFO=[1]\n", ""});
    ASSERT_EQ(Init(), pellix::kResultOk);
    EXPECT_TRUE(master.WaitForRequest("DEVINFO?", 2));  // from the state thread, unanswered
    link->Stop();
    EXPECT_TRUE(WaitFor([this] { return log.Contains("State thread terminated"); }));
    EXPECT_LE(log.Count("Device has been removed"), 1U);
}

TEST_F(PellixTest, RequestsOnAnUnpluggedTtyFailAtOnce) {
    InitAndSettle();
    master.Unplug();
    const auto waited = Measure([this] {
        EXPECT_EQ(link->RequestID(), pellix::kResultNoCommand);
        EXPECT_EQ(link->WritePDOUT({0, 0}), pellix::kResultNoCommand);
    });
    EXPECT_LT(waited, milliseconds(900));
    EXPECT_EQ(log.OfThisThread(),
              (Messages{"Failed to write to serial connection: -1", "Failed to send command ID",
                        "Pending command ID deleted (Status: 0).", "Active commands: 0",
                        "Failed to write to serial connection: -1", "Failed to send command PDOUT",
                        "Pending command PDOUT deleted (Status: 0).", "Active commands: 0"}));
}

TEST_F(PellixTest, RequestToATtyThatAcceptsNoBytesFailsAfterThreeSeconds) {
    InitAndSettle();
    master.Stall(true);
    unsigned result = 0;
    const auto waited = Measure([&] { result = link->Operate(); });
    EXPECT_EQ(result, pellix::kResultNoCommand);
    EXPECT_GE(waited, seconds(3));
    EXPECT_TRUE(log.Contains("Failed to send command OPERATE"));
    master.Stall(false);
    EXPECT_EQ(link->Restart(), pellix::kResultOk);
    EXPECT_EQ(master.Requests(), Lines{"RESTART()"});
}

TEST_F(PellixTest, UnplugInTheMiddleOfRequestsEndsThemAll) {
    InitAndSettle();
    std::atomic<int> successes = 0;
    std::atomic<int> ended = 0;
    std::atomic<bool> unplugged = false;
    std::vector<std::thread> callers;
    for (unsigned index = 0; index < 3; ++index) {
        callers.emplace_back([this, index, &successes, &ended, &unplugged] {
            bool succeeded = true;
            while (succeeded || !unplugged) {  // on a busy machine, one may fail earlier
                succeeded = link->WriteParameter(index, 0, {1}) == pellix::kResultOk;
                successes += succeeded ? 1 : 0;
            }
            ++ended;
        });
    }
    EXPECT_TRUE(WaitFor([&] { return successes > 100; }));
    unplugged = true;
    master.Unplug();
    EXPECT_TRUE(WaitFor([&] { return ended == 3; }));
    for (std::thread& caller : callers) {
        caller.join();
    }
    EXPECT_LT(Measure([this] { link.reset(); }), seconds(5));
}

TEST_F(PellixTest, RequestsOfSeveralThreadsDoNotDisturbEachOther) {
    InitAndSettle();
    std::atomic<int> failures = 0;
    std::vector<std::thread> callers;
    for (unsigned index = 0; index < 3; ++index) {
        const std::string number = std::to_string(index);
        const std::string key = "PARAM[" + number + "][0]";
        std::ostringstream answer;
        answer << "ACK " << key << "\n" << key << "=[" << number << "]\nFIN " << key << "\n";
        master.SetAnswers(key + "?", {answer.str()});
        callers.emplace_back([this, index, &failures] {
            for (int i = 0; i < 30; ++i) {
                const bool good =
                    link->ReadParameter(index, 0) == pellix::kResultOk &&
                    link->GetParameter(index, 0) == Bytes{static_cast<std::uint8_t>(index)};
                failures += good ? 0 : 1;
            }
        });
    }
    for (std::thread& caller : callers) {
        caller.join();
    }
    EXPECT_EQ(failures, 0);
}

// When the state thread is joined, parser and timeout monitor have ended: its pending command would
// neither finish nor expire.
TEST_F(PellixTest, DestructorEndsAStateThreadThatWaitsForAReply) {
    master.SetValue("MODE", "3");
    master.SetAnswers("DEVINFO?", {"DEVINFO=[1]\n", ""});
    ASSERT_EQ(Init(), pellix::kResultOk);
    EXPECT_TRUE(master.WaitForRequest("DEVINFO?", 2));
    const std::shared_ptr<std::unique_ptr<Pellix>> owner =
        std::make_shared<std::unique_ptr<Pellix>>(std::move(link));
    EXPECT_TRUE(support::EndsWithin(seconds(10), [owner] { owner->reset(); }));
    EXPECT_EQ(log.Count("State thread terminated"), 1U);
}

TEST_F(PellixTest, DestructorIsFastWhileTheMasterSends) {
    master.StreamEvery(milliseconds(2));
    InitAndSettle();
    EXPECT_LT(Measure([this] { link.reset(); }), milliseconds(900));
}

TEST_F(PellixTest, InvalidLineIsLoggedAndTheLinesAfterItAreHandled) {
    InitAndSettle();
    master.SetAnswers("OPERATE()", {"ERR X\nERR OPERATE x\nACK OPERATE\nFIN OPERATE\n"});
    EXPECT_EQ(link->Operate(), pellix::kResultOk);
    EXPECT_EQ(log.BeginningWith("Exception in parser thread"),
              Messages(2, "Exception in parser thread: stoi"));
    EXPECT_FALSE(log.Contains("Input timeout"));
}

TEST_F(PellixTest, GarbageFromTheMasterIsHarmless) {
    InitAndSettle();
    for (const char* text :
         {"\n\n\n", "ERR\n", "ERR OPERATE\n", "MODE\n", "=\n", "@\n", "PARAM[=[\n",
          "DEVINFO=[0,0,0,4294967295,4294967295]\n", "\xFF\xFE\n", "PDIN=[,,,]\n", "ID\n"}) {
        master.Send(text);
    }
    master.Send(std::string(2000, 'x') + "\n");
    master.Send("@MODE=4\n");
    EXPECT_TRUE(WaitFor([this] { return link->GetDeviceMode() == pellix::kModeOperate; }));
    EXPECT_EQ(link->Operate(), pellix::kResultOk);
}

TEST_F(PellixTest, DeviceStringWithoutSerialNumberIsTheProductAlone) {
    master.SetAnswers("PARAM[21][0]?", {"FIN PARAM[21][0]\n"});
    InitAndSettle();
    EXPECT_EQ(link->GetDeviceString(), "HVA");
    EXPECT_EQ(log.All(), Messages{"Parameter 21 / 0 not found"});
}

TEST_F(PellixTest, BothPollsHaveOneMillisecondOfTimerSlack) {
    InitAndSettle();
    EXPECT_EQ(ThreadsWithTimerSlack("1000000"), 2);
}

TEST_F(PellixTest, MissingSerialNumberIsLoggedByEveryLookup) {
    master.SetAnswers("PARAM[21][0]?", {"FIN PARAM[21][0]\n"});
    InitAndSettle();
    EXPECT_TRUE(link->IsNamed("HVA"));
    EXPECT_FALSE(link->IsNamed("HVA SN:100001"));
    EXPECT_EQ(log.All(), (Messages(2, "Parameter 21 / 0 not found")));
}

TEST_F(PellixTest, DeviceStringFollowsItsParameters) {
    InitAndSettle();
    EXPECT_TRUE(link->IsNamed("HVA SN:100001"));
    link->GetDevice().SetParameter(21, 0, {'7'});
    EXPECT_FALSE(link->IsNamed("HVA SN:100001"));
    EXPECT_EQ(link->GetDeviceString(), "HVA SN:7");
    link->GetDevice().SetParameter(19, 0, {'M', 'Z', 'D'});
    EXPECT_EQ(link->GetDeviceString(), "MZD SN:7");
    link->GetDevice().SetMode(pellix::kModePowerFault);  // clears them
    EXPECT_FALSE(link->IsNamed("MZD SN:7"));
    EXPECT_TRUE(link->IsNamed(""));
}

TEST_F(PellixTest, DeviceStringWithAnEmptySerialNumberIsTheProductAlone) {
    master.SetValue("PARAM[21][0]", "[]");
    InitAndSettle();
    EXPECT_EQ(link->GetDeviceString(), "HVA");
    EXPECT_TRUE(log.All().empty());
}

TEST_F(PellixTest, DeviceStringIsSafeForClients) {
    master.SetValue("PARAM[19][0]", "[4d,5a,44,1,ff,0,0]");
    master.SetValue("PARAM[21][0]", "[31,0,32,c3,a4,0]");
    EXPECT_EQ(Init(), pellix::kResultOk);
    EXPECT_EQ(link->GetDeviceString(), "MZD?? SN:1?2\xC3\xA4");
}

TEST_F(PellixTest, DeviceInfoIsReturnedOnlyWhileConnected) {
    master.SetValue("MODE", "0");
    ASSERT_EQ(Init(), pellix::kResultOk);
    EXPECT_EQ(link->RequestDeviceInfo(), pellix::kResultOk);
    EXPECT_FALSE(link->GetDevice().GetDeviceInfo().empty());
    EXPECT_TRUE(link->GetDeviceInfo().empty());
    EXPECT_EQ(log.OfThisThread().back(), "DeviceInfo");
    master.Send("@MODE=2\n");
    EXPECT_TRUE(WaitFor([this] { return link->IsConnected(); }));
    EXPECT_EQ(link->GetDeviceInfo(), link->GetDevice().GetDeviceInfo());
}

TEST_F(PellixTest, IdIsTheLastOneReported) {
    master.SetValue("ID", "\"MARROK-7\"");
    InitAndSettle();
    EXPECT_EQ(link->GetID(), "MARROK-7");
    master.Send("@ID=OTHER\n");
    EXPECT_TRUE(WaitFor([this] { return link->GetID() == "OTHER"; }));
}

TEST_F(PellixTest, PinsAreCounted) {
    Open();
    EXPECT_FALSE(link->IsPinned());
    link->WaitUntilUnpinned();
    link->Pin();
    link->Pin();
    link->Unpin();
    EXPECT_TRUE(link->IsPinned());
    std::atomic<bool> released = false;
    std::thread waiter([&] {
        link->WaitUntilUnpinned();
        EXPECT_TRUE(released);
    });
    released = true;
    link->Unpin();
    waiter.join();
    EXPECT_FALSE(link->IsPinned());
}

TEST_F(PellixTest, ModeNamesAreThoseOfTheProtocol) {
    EXPECT_EQ(Pellix::GetModeName(0), "DL_NONE");
    EXPECT_EQ(Pellix::GetModeName(7), "DL_POWERFAULT");
    EXPECT_EQ(Pellix::GetModeName(9), "[unknown]");
}

TEST_F(PellixTest, SupportedMastersAreRecognisedByTheirExactProduct) {
    EXPECT_TRUE(Pellix::IsMasterProduct("PELLIX"));
    EXPECT_TRUE(Pellix::IsMasterProduct("MARROK-7"));
    for (const char* other :
         {"", "pellix", "PELLIX ", "PELLI", "PELLIX2", "MARROK7", "MARROK-70"}) {
        EXPECT_FALSE(Pellix::IsMasterProduct(other)) << other;
    }
}
