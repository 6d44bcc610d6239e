#include "doctor/log/LogModel.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <deque>
#include <random>

#include "doctor/log/LogEntry.h"
#include "doctor/log/LogStart.h"

namespace tavrik {
namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;
using std::chrono::seconds;
using Lines = std::vector<std::string>;
using Rows = std::vector<LogRow>;

TEST(LogEntryTest, ALineOfTheDaemonHasTimeThreadAndMessage) {
    const LogEntry entry = ParseLogEntry("08:51:25 139912437311168 Switching to OPERATE");
    EXPECT_EQ(entry.clock, "08:51:25");
    EXPECT_EQ(entry.thread, 139912437311168U);
    EXPECT_EQ(entry.message, "Switching to OPERATE");
    EXPECT_FALSE(entry.IsPrecise());
}

TEST(LogEntryTest, TheJournalAddsDateAndMicroseconds) {
    const LogEntry entry =
        ParseLogEntry("2026-11-22T12:00:01.120456+0100 TavrikDaemon[42]: 12:00:00 7 ESTABCOMM");
    EXPECT_EQ(entry.date, "2026-11-22");
    EXPECT_EQ(entry.clock, "12:00:01.120456");
    EXPECT_EQ(entry.zone, "+0100");
    EXPECT_EQ(entry.process, "TavrikDaemon[42]");
    EXPECT_EQ(entry.thread, 7U);
    EXPECT_EQ(entry.message, "ESTABCOMM");
    EXPECT_TRUE(entry.IsPrecise());
    EXPECT_EQ(entry.SinceStart(), seconds(1795345201) + microseconds(120456));
}

TEST(LogEntryTest, OtherFormatsOfTheJournalAreRead) {
    for (const char* const line : {"Nov 22 12:00:01 host TavrikDaemon[42]: 12:00:01 7 STARTUP",
                                   "2026-11-22T12:00:01+0100 host TavrikDaemon[42]: 12:00:01 7 "
                                   "STARTUP"}) {
        const LogEntry entry = ParseLogEntry(line);
        EXPECT_EQ(entry.clock, "12:00:01") << line;
        EXPECT_EQ(entry.thread, 7U) << line;
        EXPECT_EQ(entry.message, "STARTUP") << line;
    }
}

TEST(LogEntryTest, OtherLinesAreMessagesAsTheyAre) {
    for (const char* const line :
         {"", " timed out after 1003 ms.", "TavrikDaemon::shutdown", "12:00:01", "12:00:01 x y",
          "12:00:01 7", "12:00:01 99999999999999999999 x", "1:00:00 7 x", "Nov 22 12:00:01"}) {
        const LogEntry entry = ParseLogEntry(line);
        EXPECT_FALSE(entry.thread) << line;
        EXPECT_EQ(entry.message, line);
    }
}

/// The lines of a master with an HVA that is set up by thread `first`, which is its main thread;
/// the next numbers are those of its parser, timeout monitor and state thread.
Lines MasterLines(const std::string& node, const std::string& serial, int first) {
    const auto line = [first](int thread, const std::string& text) {
        return "12:00:00 " + std::to_string(first + thread) + " " + text;
    };
    return {"12:00:00 1 SerialConnection: Opening device " + node,
            line(1, "Parser thread active"),
            line(2, "Timeout monitor thread active"),
            line(1, "Parsing line: PARAM[19][0]=[48,56,41]"),
            line(1, "Parsing line: PARAM[21][0]=[" + serial + "]"),
            "12:00:00 1 Init: Device mode is DL_PREOPERATE",
            line(3, "State thread active")};
}

Lines ThreeMasters() {
    Lines lines{"12:00:00 1 Starting TavrikDaemon (2-port)"};
    for (const Lines& more :
         {MasterLines("/dev/ttyACM0", "31", 10), MasterLines("/dev/ttyACM1", "32", 20),
          MasterLines("/dev/ttyACM2", "33", 30)}) {
        lines.insert(lines.end(), more.begin(), more.end());
    }
    return lines;
}

Rows RowsOf(const Lines& lines, bool withRoutine = false) {
    Rows rows;
    LogModel model([&](const LogRow& row) { rows.push_back(row); }, withRoutine);
    for (const std::string& line : lines) {
        model.Take(line);
    }
    model.End();
    return rows;
}

/// The calls in `lines` after those of three masters.
Rows CallsOf(const Lines& lines) {
    Lines all = ThreeMasters();
    all.insert(all.end(), lines.begin(), lines.end());
    Rows rows = RowsOf(all);
    std::erase_if(rows, [](const LogRow& row) { return !row.call; });
    return rows;
}

TEST(LogModelTest, ACallBelongsToTheMasterThatAnswered) {
    const Rows calls =
        CallsOf({"12:00:01 5 New command PDOUT. Active commands: 1", "12:00:01 21 ACK:PDOUT",
                 "12:00:01 21 Parsing line: PDOUT=[3,1]", "12:00:01 21 FIN:PDOUT",
                 "12:00:01 5 Pending command PDOUT deleted (Status: 0)."});
    ASSERT_EQ(calls.size(), 1U);
    EXPECT_EQ(calls[0].owner.node, "/dev/ttyACM1");
    EXPECT_EQ(calls[0].owner.gripper, "HVA SN:2");
    EXPECT_EQ(calls[0].call->method, "Grip");
    EXPECT_EQ(calls[0].call->request, "PDOUT=[3,1]");
    EXPECT_EQ(calls[0].call->status, 0U);
    EXPECT_FALSE(calls[0].call->isExact);
}

TEST(LogModelTest, ACallThatTwoMastersMayHaveAnsweredHasNoOwner) {
    const Rows calls =
        CallsOf({"12:00:01 5 New command PDOUT. Active commands: 1",
                 "12:00:01 6 New command PDOUT. Active commands: 1", "12:00:01 11 FIN:PDOUT",
                 "12:00:01 21 FIN:PDOUT", "12:00:01 5 Pending command PDOUT deleted (Status: 0).",
                 "12:00:01 6 Pending command PDOUT deleted (Status: 0).",
                 "12:00:02 7 New command PDOUT. Active commands: 1", "12:00:02 11 FIN:PDOUT",
                 "12:00:02 7 Pending command PDOUT deleted (Status: 0)."});
    ASSERT_EQ(calls.size(), 3U);
    for (const std::size_t i : {0U, 1U}) {
        EXPECT_FALSE(calls[i].owner.IsKnown());
        EXPECT_EQ(calls[i].owner.candidates, (Lines{"HVA SN:1", "HVA SN:2"}));
    }
    EXPECT_EQ(calls[2].owner.gripper, "HVA SN:1");
}

TEST(LogModelTest, TheDetectedModelDecidesWhichMasterAndMethodItWas) {
    const Rows calls = CallsOf({"12:00:01 5 New command DEVINFO. Active commands: 1",
                                "12:00:01 6 New command DEVINFO. Active commands: 1",
                                "12:00:01 11 Parsing line: DEVINFO=[1,3,17,32,16,20,0,31249,20]",
                                "12:00:01 21 Parsing line: DEVINFO=[1,3,17,32,16,20,0,31249,10]",
                                "12:00:01 5 Pending command DEVINFO deleted (Status: 0).",
                                "12:00:01 6 Pending command DEVINFO deleted (Status: 0).",
                                "12:00:01 5 TLM detected", "12:00:01 6 HVA detected",
                                "12:00:01 6 New command PDOUT. Active commands: 1",
                                "12:00:01 11 Parsing line: PDOUT=[6,0]", "12:00:01 11 FIN:PDOUT",
                                "12:00:01 6 Pending command PDOUT deleted (Status: 0)."});
    ASSERT_EQ(calls.size(), 2U);
    EXPECT_EQ(calls[0].owner.gripper, "HVA SN:2");
    EXPECT_EQ(calls[0].call->status, 3U);
    EXPECT_EQ(calls[0].call->note, "not supported by its model");
    EXPECT_EQ(calls[1].owner.gripper, "HVA SN:1");
    EXPECT_EQ(calls[1].call->method, "Reference");
}

TEST(LogModelTest, AReplyIsUsedOnce) {
    const Rows calls =
        CallsOf({"12:00:01 5 New command PDOUT. Active commands: 1",
                 "12:00:01 6 New command PDOUT. Active commands: 1", "12:00:01 11 FIN:PDOUT",
                 "12:00:01 5 Pending command PDOUT deleted (Status: 0).", "12:00:01 21 FIN:PDOUT",
                 "12:00:01 6 Pending command PDOUT deleted (Status: 0)."});
    ASSERT_EQ(calls.size(), 2U);
    EXPECT_EQ(calls[0].owner.gripper, "HVA SN:1");
    EXPECT_EQ(calls[1].owner.gripper, "HVA SN:2");
}

TEST(LogModelTest, AReplyIsKeptForTheRequestThatWaitsForIt) {
    // The requests of 6 and 7 end first, and both may have had the reply to that of 5.
    const Rows calls = CallsOf(
        {"12:00:01 6 New command PDOUT. Active commands: 1", "12:00:01 21 FIN:PDOUT",
         "12:00:01 5 Active commands: 0", "12:00:01 5 New command PDOUT. Active commands: 1",
         "12:00:01 7 Active commands: 0", "12:00:01 7 New command PDOUT. Active commands: 1",
         "12:00:01 11 FIN:PDOUT", "12:00:01 6 Pending command PDOUT deleted (Status: 0).",
         "12:00:01 31 FIN:PDOUT", "12:00:01 7 Pending command PDOUT deleted (Status: 0).",
         "12:00:01 5 Pending command PDOUT deleted (Status: 0)."});
    ASSERT_EQ(calls.size(), 3U);
    EXPECT_EQ(calls[0].owner.candidates, (Lines{"HVA SN:1", "HVA SN:2"}));
    EXPECT_EQ(calls[1].owner.candidates, (Lines{"HVA SN:1", "HVA SN:3"}));
    EXPECT_EQ(calls[2].owner.candidates, (Lines{"HVA SN:1", "HVA SN:3"}));
}

/// The log of robots that call grippers without a pause, their threads interrupted anywhere.
/// @return lines; the thread of robot `i` is 100 + i, its gripper is that of master i % `grippers`
Lines RandomCalls(unsigned seed, std::size_t robots, std::size_t grippers) {
    constexpr int kCalls = 15;
    struct Robot {
        int calls = 0;
        bool isSent = false;
        bool isLogged = false;  // that it was sent
        Lines reply = {};       // the next line is the last one
    };
    const Lines assigned{"FIN:PDOUT", "Parsing line: FIN PDOUT", "ACK:PDOUT"};
    const Lines read{"FIN:PDOUT", "Parsing line: FIN PDOUT", "Parsing line: PDOUT=[3,1]",
                     "ACK:PDOUT"};
    std::mt19937 random(seed);
    std::vector<Robot> all(robots);
    std::vector<std::deque<std::size_t>> unanswered(grippers);  // the robots, in order
    Lines lines;
    const auto log = [&](std::size_t thread, const std::string& text) {
        lines.push_back("12:00:01 " + std::to_string(thread) + " " + text);
    };
    while (std::ranges::any_of(all, [](const Robot& robot) { return robot.calls < kCalls; })) {
        const std::size_t i = random() % robots;
        Robot& robot = all[i];
        auto& queue = unanswered[i % grippers];
        if (!robot.isSent) {
            if (robot.calls < kCalls) {
                robot = {robot.calls, true, false, random() % 2 == 0 ? assigned : read};
                queue.push_back(i);
            }
        } else if (!robot.reply.empty() && queue.front() == i && random() % 2 == 0) {
            log(10 * (i % grippers) + 11, robot.reply.back());
            robot.reply.pop_back();
            if (robot.reply.empty()) {
                queue.pop_front();
            }
        } else if (!robot.isLogged) {
            robot.isLogged = true;
            log(100 + i, "New command PDOUT. Active commands: 1");
        } else if (robot.reply.empty()) {
            log(100 + i, "Pending command PDOUT deleted (Status: 0).");
            log(100 + i, "Active commands: 0");
            robot = {.calls = robot.calls + 1};
        }
    }
    return lines;
}

class InterleavingTest : public testing::TestWithParam<std::size_t> {};

TEST_P(InterleavingTest, GivesNoCallToAnotherGripper) {
    int known = 0;
    int unknown = 0;
    for (unsigned seed = 0; seed < 10; ++seed) {
        for (const LogRow& row : CallsOf(RandomCalls(seed, GetParam(), 3))) {
            const std::string gripper = "HVA SN:" + std::to_string((*row.thread - 100) % 3 + 1);
            if (row.owner.IsKnown()) {
                ++known;
                ASSERT_EQ(row.owner.gripper, gripper) << "seed " << seed;
            } else {
                ++unknown;
                ASSERT_EQ(std::ranges::count(row.owner.candidates, gripper), 1) << "seed " << seed;
            }
        }
    }
    EXPECT_GT(known, 0);
    EXPECT_GT(unknown, 0);
}

INSTANTIATE_TEST_SUITE_P(ThreeGrippers, InterleavingTest, testing::Values(3, 6));

TEST(LogModelTest, AFinOfAnotherRequestIsAReplyOfItsOwn) {
    // The value of master 1 was for the request of 5, which has ended; 7 gets only a FIN.
    const Rows calls = CallsOf(
        {"12:00:01 5 New command PDOUT. Active commands: 1",
         "12:00:01 6 New command PDOUT. Active commands: 1",
         "12:00:01 11 Parsing line: PDOUT=[3,1]", "12:00:01 21 Parsing line: PDOUT=[3,2]",
         "12:00:01 5 Pending command PDOUT deleted (Status: 0).", "12:00:01 7 Active commands: 0",
         "12:00:01 7 New command PDOUT. Active commands: 1",
         "12:00:01 8 New command PDOUT. Active commands: 1", "12:00:01 11 ACK:PDOUT",
         "12:00:01 11 FIN:PDOUT", "12:00:01 31 Parsing line: PDOUT=[3,3]",
         "12:00:01 7 Pending command PDOUT deleted (Status: 0)."});
    ASSERT_EQ(calls.size(), 2U);
    EXPECT_EQ(calls[1].owner.candidates, (Lines{"HVA SN:1", "HVA SN:3"}));
}

TEST(LogModelTest, ACallWhoseBeginningIsCutOffHasNoOwner) {
    const Rows calls =
        CallsOf({"12:00:01 21 FIN:PDOUT", "12:00:01 5 Pending command PDOUT deleted (Status: 0).",
                 "12:00:01 6 Pending command PDOUT deleted (Status: 0)."});
    ASSERT_EQ(calls.size(), 2U);
    EXPECT_FALSE(calls[0].owner.IsKnown());
    EXPECT_FALSE(calls[1].owner.IsKnown());
}

TEST(LogModelTest, ARequestThatWasNotSentMayBeForAnotherGripperThanTheRefusedOne) {
    const Rows calls = CallsOf(
        {"12:00:01 5 New command DEVINFO. Active commands: 1",
         "12:00:01 11 Parsing line: DEVINFO=[1,3,17,32,16,20,0,31249,20]",
         "12:00:01 11 FIN:DEVINFO", "12:00:01 5 Pending command DEVINFO deleted (Status: 0).",
         "12:00:01 5 HVA detected", "12:00:04 5 Failed to write to serial connection: -1",
         "12:00:04 5 Failed to send command PDOUT",
         "12:00:04 5 Pending command PDOUT deleted (Status: 0)."});
    ASSERT_EQ(calls.size(), 1U);
    EXPECT_EQ(calls[0].call->status, 12U);
    EXPECT_FALSE(calls[0].owner.IsKnown());
}

TEST(LogModelTest, ATimeoutOfAnUnknownMonitorMayBeOfEachMasterWithoutOne) {
    Lines lines = ThreeMasters();
    for (const char* const start : {" 12 Timeout", " 22 Timeout"}) {
        std::erase_if(
            lines, [&](const std::string& line) { return line.find(start) != std::string::npos; });
    }
    lines.insert(lines.end(),
                 {"12:00:01 5 New command PARAM[96][3]. Active commands: 1",
                  "12:00:01 6 New command PARAM[96][3]. Active commands: 1",
                  "12:00:02 12 Active command PARAM[96][3]=[3c]", " timed out after 1003 ms.",
                  "12:00:02 32 Active command PARAM[96][3]=[3c]", " timed out after 1003 ms.",
                  "12:00:02 5 Pending command PARAM[96][3] deleted (Status: 5).",
                  "12:00:02 6 Pending command PARAM[96][3] deleted (Status: 5)."});
    Rows calls = RowsOf(lines);
    std::erase_if(calls, [](const LogRow& row) { return !row.call; });
    ASSERT_EQ(calls.size(), 2U);
    EXPECT_EQ(calls[0].owner.candidates, (Lines{"HVA SN:1", "HVA SN:2", "HVA SN:3"}));
}

TEST(LogModelTest, AMasterWithoutANameLeavesNoCandidates) {
    Lines lines = ThreeMasters();
    lines.insert(
        lines.end(),
        {"12:00:01 41 Parsing line: PDIN=[0,0]", "12:00:01 5 New command PDOUT. Active commands: 1",
         "12:00:01 6 New command PDOUT. Active commands: 1", "12:00:01 11 FIN:PDOUT",
         "12:00:01 41 FIN:PDOUT", "12:00:01 5 Pending command PDOUT deleted (Status: 0)."});
    const LogRow row = RowsOf(lines).back();
    ASSERT_TRUE(row.call);
    EXPECT_FALSE(row.owner.IsKnown());
    EXPECT_EQ(row.owner.candidates, Lines{});
}

TEST(LogModelTest, AReplyThatNoRequestWaitsForIsIgnored) {
    const Rows calls = CallsOf(
        {"12:00:01 5 New command PDOUT. Active commands: 1", "12:00:01 11 Parsing line: FIN PDOUT",
         "12:00:01 11 FIN:PDOUT", "12:00:01 11 Active command PDOUT could not be found",
         "12:00:01 21 FIN:PDOUT", "12:00:01 5 Pending command PDOUT deleted (Status: 0)."});
    ASSERT_EQ(calls.size(), 1U);
    EXPECT_EQ(calls[0].owner.gripper, "HVA SN:2");
}

TEST(LogModelTest, ATimeoutHasTheRequestAndItsAge) {
    const Rows calls =
        CallsOf({"12:00:01 5 New command PARAM[96][3]. Active commands: 1",
                 "12:00:02 12 Active command PARAM[96][3]=[3c]", " timed out after 1003 ms.",
                 "12:00:02 5 Pending command PARAM[96][3] deleted (Status: 5)."});
    ASSERT_EQ(calls.size(), 1U);
    EXPECT_EQ(calls[0].owner.gripper, "HVA SN:1");
    EXPECT_EQ(calls[0].call->method, "SetForce");
    EXPECT_EQ(calls[0].call->request, "PARAM[96][3]=[3c]");
    EXPECT_EQ(calls[0].call->outcome, LoggedCall::Outcome::TimedOut);
    EXPECT_EQ(calls[0].call->duration, milliseconds(1003));
    EXPECT_TRUE(calls[0].call->isExact);
}

TEST(LogModelTest, ARefusalHasTheMastersCode) {
    const Rows calls = CallsOf({"12:00:01 5 New command PDOUT. Active commands: 1",
                                "12:00:01 11 Parsing line: ERR PDOUT 6", "12:00:01 11 ERR:PDOUT",
                                "12:00:01 5 Pending command PDOUT deleted (Status: 6)."});
    ASSERT_EQ(calls.size(), 1U);
    EXPECT_EQ(calls[0].call->status, 6U);
    EXPECT_EQ(calls[0].call->outcome, LoggedCall::Outcome::Refused);
    EXPECT_EQ(calls[0].owner.gripper, "HVA SN:1");
}

TEST(LogModelTest, ARequestThatWasNotSentIsNoSuccess) {
    const Rows calls = CallsOf({"12:00:04 5 Failed to write to serial connection: -1",
                                "12:00:04 5 Failed to send command PDOUT",
                                "12:00:04 5 Pending command PDOUT deleted (Status: 0)."});
    ASSERT_EQ(calls.size(), 1U);
    EXPECT_EQ(calls[0].call->status, 12U);
    EXPECT_EQ(calls[0].call->note, "Failed to write to serial connection: -1");
    EXPECT_FALSE(calls[0].owner.IsKnown());
}

TEST(LogModelTest, AnUnknownGripperIsOneCall) {
    const Rows calls = CallsOf(
        {"12:00:01 5 Device 'x' not found", "12:00:01 5 GetPos: Failed to get PELLIX handle"});
    ASSERT_EQ(calls.size(), 1U);
    EXPECT_EQ(calls[0].call->method, "GetPos");
    EXPECT_EQ(calls[0].call->status, 3U);
    EXPECT_EQ(calls[0].owner.gripper, "x");
}

TEST(LogModelTest, AThreadThatEndsMayServeClientsLater) {
    const Rows calls =
        CallsOf({"12:00:01 11 Parser thread terminated",
                 "12:00:02 11 New command PDOUT. Active commands: 1", "12:00:02 21 FIN:PDOUT",
                 "12:00:02 11 Pending command PDOUT deleted (Status: 0)."});
    ASSERT_EQ(calls.size(), 1U);
    EXPECT_EQ(calls[0].owner.gripper, "HVA SN:2");
}

TEST(LogModelTest, AGripperThatMayHaveBeenExchangedHasNoName) {
    Lines lines = ThreeMasters();
    lines.insert(lines.end(), {"12:00:01 11 Setting device mode to 1", "12:00:01 13 ESTABCOMM"});
    const LogRow row = RowsOf(lines).back();
    EXPECT_EQ(row.text, "ESTABCOMM");
    EXPECT_EQ(row.owner.node, "/dev/ttyACM0");
    EXPECT_EQ(row.owner.gripper, "");
}

TEST(LogModelTest, RoutineIsHeldUntilItsOwnerIsKnown) {
    Lines lines = ThreeMasters();
    lines.insert(lines.end(), {"12:00:01 5 New command PDOUT. Active commands: 1",
                               "12:00:01 11 PDIN active", "12:00:01 21 FIN:PDOUT",
                               "12:00:01 5 Pending command PDOUT deleted (Status: 0)."});
    const Rows rows = RowsOf(lines, true);
    const LogRow& sent = rows[rows.size() - 5];
    EXPECT_EQ(sent.text, "New command PDOUT. Active commands: 1");
    EXPECT_EQ(sent.owner.gripper, "HVA SN:2");
}

TEST(LogModelTest, AStateThreadThatStartsLateIsKnownByItsFirstRequest) {
    Lines lines{"12:00:00 1 Starting TavrikDaemon (2-port)"};
    for (const Lines& more :
         {MasterLines("/dev/ttyACM0", "31", 10), MasterLines("/dev/ttyACM1", "32", 20)}) {
        lines.insert(lines.end(), more.begin(), more.end() - 1);
    }
    lines.insert(lines.end(),
                 {"12:00:00 23 State thread active", "12:00:00 23 PREOPERATE",
                  "12:00:00 13 State thread active", "12:00:00 13 PREOPERATE",
                  "12:00:01 23 New command DEVINFO. Active commands: 1", "12:00:01 21 FIN:DEVINFO",
                  "12:00:01 23 Pending command DEVINFO deleted (Status: 0).",
                  "12:00:01 13 New command DEVINFO. Active commands: 1", "12:00:01 11 FIN:DEVINFO",
                  "12:00:01 13 Pending command DEVINFO deleted (Status: 0)."});
    const Rows rows = RowsOf(lines);
    EXPECT_EQ(rows[rows.size() - 2].text, "PREOPERATE");
    EXPECT_EQ(rows[rows.size() - 2].owner.node, "/dev/ttyACM1");
    EXPECT_EQ(rows[rows.size() - 1].owner.node, "/dev/ttyACM0");
}

TEST(LogModelTest, RepeatedTroubleIsCounted) {
    Lines lines = ThreeMasters();
    for (int i = 0; i < 100; ++i) {
        lines.emplace_back("12:00:01 11 Input timeout");
        lines.emplace_back("12:00:01 11 Parser: No input data");
    }
    const Rows rows = RowsOf(lines);
    ASSERT_GE(rows.size(), 3U);
    EXPECT_EQ(rows[rows.size() - 3].text, "Input timeout");
    EXPECT_EQ(rows[rows.size() - 2].text, "Parser: No input data");
    EXPECT_EQ(rows[rows.size() - 1].text, "198 more lines like those above");
    EXPECT_EQ(rows.back().owner.gripper, "HVA SN:1");
}

TEST(LogModelTest, WhatWasLearnedIsNeitherShownNorCounted) {
    Rows rows;
    LogModel model([&](const LogRow& row) { rows.push_back(row); }, true);
    for (const std::string& line : ThreeMasters()) {
        model.Learn(line);
    }
    model.Take("12:00:05 11 PDIN active");
    model.End();
    ASSERT_EQ(rows.size(), 1U);
    EXPECT_EQ(rows[0].owner.gripper, "HVA SN:1");
    EXPECT_EQ(model.Summary().lines, 1U);
    EXPECT_EQ(model.Summary().starts, 0U);
}

TEST(LogStartTest, ALogWithoutDatesBeginsOnceADay) {
    LogStart begin("14:00");
    Lines found;
    for (const char* const line : {"13:59:59 1 a", "14:00:00 1 b", "14:00:01 1 c", "00:00:00 1 d",
                                   "13:59:59 1 e", "15:00:00 1 f", "14:59:59 1 g"}) {
        if (begin.StartsAt(ParseLogEntry(line))) {
            found.emplace_back(line);
        }
    }
    EXPECT_EQ(found, (Lines{"14:00:00 1 b", "15:00:00 1 f"}));
}

TEST(LogStartTest, ALogWithDatesBeginsOnce) {
    LogStart begin("2026-11-22 14:00");
    EXPECT_FALSE(begin.StartsAt(ParseLogEntry("2026-11-20T23:00:00.0+0000 x[1]: 23:00:00 1 a")));
    EXPECT_TRUE(begin.StartsAt(ParseLogEntry("2026-11-24T13:00:00.0+0000 x[1]: 13:00:00 1 a")));
    EXPECT_FALSE(begin.StartsAt(ParseLogEntry("2026-11-24T15:00:00.0+0000 x[1]: 15:00:00 1 a")));
}

}  // namespace
}  // namespace tavrik
