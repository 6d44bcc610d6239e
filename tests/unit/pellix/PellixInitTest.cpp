#include <gtest/gtest.h>

#include <chrono>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "pellix/Pellix.h"
#include "pellix/Protocol.h"
#include "tests/support/FakeMaster.h"
#include "tests/support/LogCapture.h"
#include "tests/support/WaitFor.h"
#include "tests/unit/pellix/PellixTest.h"

using pellix::Pellix;
using std::chrono::milliseconds;
using support::FakeMaster;
using support::Measure;
using support::Messages;
using support::WaitFor;
using Lines = std::vector<std::string>;

/// Tests of Init().
class PellixInitTest : public PellixTest {
protected:
    /// @return messages of Init() about its attempts
    Messages Attempts() const {
        Messages found;
        for (const std::string& message : log.OfThisThread()) {
            if (message.starts_with("Updating") || message.starts_with("Failed") ||
                message.starts_with("Retrying")) {
                found.push_back(message);
            }
        }
        return found;
    }
};

namespace {

Messages RequestLines(const std::string& key) {
    return {"New command " + key + ". Active commands: 1",
            "Pending command " + key + " deleted (Status: 0).", "Active commands: 0"};
}

void Append(Messages& messages, const Messages& more) {
    messages.insert(messages.end(), more.begin(), more.end());
}

/// @return messages of an update that fails five times with this result
Messages FiveFailures(const std::string& what, const std::string& result) {
    const std::string failure = "Failed to update " + what + ": " + result;
    Messages messages = {"Updating " + what};
    for (const char* attempt : {"0", "1", "2", "3", "4"}) {
        Append(messages, {failure, std::string("Retrying (") + attempt + ")..."});
    }
    messages.push_back("Failed (finally) to update " + what + ": " + result);
    return messages;
}

}  // namespace

TEST_F(PellixInitTest, InitReadsIdModeAndDevice) {
    EXPECT_EQ(Init(), pellix::kResultOk);
    EXPECT_EQ(link->GetID(), "PELLIX");
    EXPECT_EQ(link->GetDeviceMode(), pellix::kModeOperate);
    EXPECT_TRUE(link->IsConnected());
    EXPECT_EQ(link->GetDeviceString(), "HVA SN:100001");
    EXPECT_EQ(link->GetDeviceInfo().size(), 9U);
    const Lines requests = master.Requests();
    ASSERT_GE(requests.size(), 5U);
    EXPECT_EQ(Lines(requests.begin(), requests.begin() + 5),
              (Lines{"ID?", "MODE?", "DEVINFO?", "PARAM[19][0]?", "PARAM[21][0]?"}));
    Settle();
}

TEST_F(PellixInitTest, InitLogsItsStepsInOrder) {
    EXPECT_EQ(Init(), pellix::kResultOk);
    Messages expected = {"SerialConnection: Opening device " + master.Path(),
                         "SerialConnection: Initialize device succeeded", "Updating ID"};
    Append(expected, RequestLines("ID"));
    expected.emplace_back("Updating mode");
    Append(expected, RequestLines("MODE"));
    Append(expected, {"Init: Device mode is DL_OPERATE", "Updating device info"});
    Append(expected, RequestLines("DEVINFO"));
    expected.emplace_back("Updating device string");
    Append(expected, RequestLines("PARAM[19][0]"));
    Append(expected, RequestLines("PARAM[21][0]"));
    EXPECT_EQ(log.OfThisThread(), expected);
    Settle();
}

TEST_F(PellixInitTest, ThreadsLogTheirStartAndEnd) {
    EXPECT_EQ(Init(), pellix::kResultOk);
    for (const char* thread : {"Parser", "Timeout monitor", "State"}) {
        const std::string name = thread;
        EXPECT_TRUE(WaitFor([&] { return log.Count(name + " thread active") == 1; })) << name;
        EXPECT_EQ(log.Count(name + " thread terminated"), 0U);
    }
    master.Unplug();
    link.reset();
    for (const char* thread : {"Parser", "Timeout monitor", "State"}) {
        EXPECT_EQ(log.Count(std::string(thread) + " thread terminated"), 1U) << thread;
    }
    EXPECT_EQ(log.All().back().find("SerialConnection: "), 0U);  // the tty is closed last
}

TEST_F(PellixInitTest, InitReadsTheDeviceInPreoperateToo) {
    master.SetValue("MODE", "3");
    EXPECT_EQ(Init(), pellix::kResultOk);
    EXPECT_TRUE(log.Contains("Init: Device mode is DL_PREOPERATE"));
    EXPECT_TRUE(log.Contains("Updating device string"));
    EXPECT_TRUE(link->IsConnected());
    EXPECT_TRUE(
        WaitFor([this] { return log.Contains("Pending command OPERATE deleted (Status: 0)."); }));
}

TEST_F(PellixInitTest, InitInOtherModesReadsNoDeviceData) {
    const std::vector<std::pair<std::string, std::string>> modes = {
        {"0", "DL_NONE"},       {"1", "DL_ESTABCOMM"}, {"6", "DL_BLMODE"},
        {"7", "DL_POWERFAULT"}, {"9", "[unknown]"},    {"-1", "[unknown]"}};
    for (const auto& [mode, name] : modes) {
        FakeMaster other;
        other.SetValue("MODE", mode);
        Pellix otherLink(other.Path());
        EXPECT_EQ(otherLink.Init(), pellix::kResultOk) << mode;
        EXPECT_TRUE(log.Contains("Init: Device mode is " + name));
        EXPECT_EQ(other.Requests(), (Lines{"ID?", "MODE?"})) << mode;
        EXPECT_FALSE(otherLink.IsConnected());
        EXPECT_EQ(otherLink.GetDeviceString(), "");
        EXPECT_EQ(log.OfThisThread().back(), "Pellix not connected");
        other.Unplug();
    }
}

TEST_F(PellixInitTest, StateThreadConnectsALinkInStartup) {
    master.SetValue("MODE", "2");
    EXPECT_EQ(Init(), pellix::kResultOk);
    EXPECT_TRUE(log.Contains("Init: Device mode is DL_STARTUP"));
    EXPECT_TRUE(WaitFor([this] { return link->IsConnected(); }));
    EXPECT_EQ(master.Requests(), (Lines{"ID?", "MODE?"}));
    EXPECT_EQ(link->GetDeviceString(), "");  // nothing was read
    EXPECT_EQ(log.OfThisThread().back(), "Parameter 21 / 0 not found");
}

TEST_F(PellixInitTest, MasterThatNeverAnswersFailsInitAfterFiveTimeouts) {
    master.SetSilent(true);
    unsigned result = 0;
    const auto waited = Measure([&] { result = Init(); });
    EXPECT_EQ(result, pellix::kResultTimeout);
    EXPECT_GE(waited, milliseconds(5500));
    EXPECT_EQ(Attempts(), FiveFailures("ID", "5"));
    EXPECT_EQ(master.Requests(), Lines(5, "ID?"));
    EXPECT_EQ(log.BeginningWith("Active command ID?\n timed out after 1").size(), 5U);
}

TEST_F(PellixInitTest, UpdateIsRetriedUntilItSucceeds) {
    master.SetAnswers("ID?", {"ERR ID 7\n", "ERR ID 8\n", "ID=PELLIX\n"});
    const auto waited = Measure([this] { EXPECT_EQ(Init(), pellix::kResultOk); });
    EXPECT_GE(waited, milliseconds(200));
    EXPECT_EQ(Attempts(), (Messages{"Updating ID", "Failed to update ID: 7", "Retrying (0)...",
                                    "Failed to update ID: 8", "Retrying (1)...", "Updating mode",
                                    "Updating device info", "Updating device string"}));
    EXPECT_EQ(master.Count("ID?"), 3U);
}

struct FailingUpdate {
    const char* name;
    const char* line;
    const char* key;
    const char* what;
};

std::ostream& operator<<(std::ostream& out, const FailingUpdate& update) {
    return out << update.name;
}

class PellixUpdateTest : public PellixInitTest,
                         public testing::WithParamInterface<FailingUpdate> {};

TEST_P(PellixUpdateTest, FiveFailuresEndInitWithTheLastResult) {
    const std::string error = std::string("ERR ") + GetParam().key;
    master.SetAnswers(GetParam().line, {error + " 7\n", error + " 7\n", error + " 7\n",
                                        error + " 7\n", error + " 7\n", error + " 8\n"});
    master.StreamEvery(milliseconds(10));  // ends the parser's reads early
    unsigned result = 0;
    const auto waited = Measure([&] { result = Init(); });
    EXPECT_EQ(result, 7U);
    EXPECT_GE(waited, milliseconds(500));  // includes a pause after the last attempt
    const Messages attempts = Attempts();
    const Messages expected = FiveFailures(GetParam().what, "7");
    ASSERT_GE(attempts.size(), expected.size());
    EXPECT_EQ(Messages(attempts.end() - static_cast<long>(expected.size()), attempts.end()),
              expected);
    EXPECT_EQ(master.Count(GetParam().line), 5U);

    EXPECT_FALSE(link->IsConnected());
    EXPECT_EQ(log.Count("Parser thread terminated"), 1U);
    EXPECT_EQ(log.Count("Timeout monitor thread terminated"), 1U);
    EXPECT_EQ(log.Count("State thread active"), 0U);
    EXPECT_EQ(link->GetDeviceString(), "");
    EXPECT_EQ(log.All().back(), "Pellix not initialized");
}

INSTANTIATE_TEST_SUITE_P(
    All, PellixUpdateTest,
    testing::Values(FailingUpdate{"ID", "ID?", "ID", "ID"},
                    FailingUpdate{"Mode", "MODE?", "MODE", "mode"},
                    FailingUpdate{"DeviceInfo", "DEVINFO?", "DEVINFO", "device info"},
                    FailingUpdate{"ProductID", "PARAM[19][0]?", "PARAM[19][0]", "device string"},
                    FailingUpdate{"SerialNumber", "PARAM[21][0]?", "PARAM[21][0]",
                                  "device string"}),
    [](const auto& update) { return update.param.name; });
