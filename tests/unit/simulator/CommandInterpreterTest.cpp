#include "simulator/CommandInterpreter.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "simulator/PtyBus.h"
#include "tests/support/WaitFor.h"
#include "tests/unit/simulator/UeventMonitor.h"

namespace simulator {
namespace {

using std::chrono::milliseconds;

std::vector<Station> Stations() {
    MasterSettings settings;
    settings.streamRate = 0;
    std::vector<Station> stations;
    for (const char* const model : {"TLM", "MZD-S"}) {
        auto master = std::make_unique<SimulatedMaster>(settings, *FindGripperModel(model),
                                                        Bytes{'P'}, Bytes{'S'}, Clock::now());
        stations.emplace_back(std::move(master));
    }
    return stations;
}

/// Both masters are plugged in.
class CommandInterpreterTest : public testing::Test {
protected:
    void SetUp() override {
        interpreter.Plug(0);
        interpreter.Plug(1);
        tty = OpenTty();
        ASSERT_NE(tty.Get(), -1);
    }

    std::string Execute(const std::string& line) {
        replies.clear();
        pause = interpreter.Execute(line);
        return replies.empty() ? "" : replies.back();
    }

    /// Executes a valid line.
    void Do(const std::string& line) { ASSERT_EQ(Execute(line), "ok " + line); }

    FileDescriptor OpenTty() const {
        return FileDescriptor(open((testbed.Folder() / "dev/ttyACM0").c_str(), O_RDWR | O_NOCTTY));
    }

    /// Writes a request to master 0. @return its text until nothing arrives for `patience`
    std::string Ask(const std::string& line, milliseconds patience) const {
        const std::string text = line + "\n";
        EXPECT_EQ(write(tty.Get(), text.data(), text.size()), static_cast<ssize_t>(text.size()));
        return Listen("", patience);
    }

    /// Writes a request to master 0. @return its text up to `end`
    std::string Ask(const std::string& line, const std::string& end) const {
        const std::string text = line + "\n";
        EXPECT_EQ(write(tty.Get(), text.data(), text.size()), static_cast<ssize_t>(text.size()));
        return Listen(end, milliseconds(10000));
    }

    std::string Listen(const std::string& end, milliseconds patience) const {
        std::string all;
        std::array<char, 256> buffer{};
        pollfd entry{tty.Get(), POLLIN, 0};
        while ((end.empty() || !all.ends_with(end)) &&
               poll(&entry, 1, static_cast<int>(patience.count())) == 1) {
            const ssize_t count = read(tty.Get(), buffer.data(), buffer.size());
            if (count <= 0) {
                break;
            }
            all.append(buffer.data(), static_cast<std::size_t>(count));
        }
        return all;
    }

    /// The next event as "ACTION DEVNAME".
    static std::string NextEvent(const UeventMonitor& monitor) {
        const std::string message = monitor.Receive().value_or("");
        const auto action = message.find("ACTION=");
        return action == std::string::npos
                   ? "none"
                   : std::string(message.c_str() + action + 7) + " " + Property(message, "DEVNAME");
    }

    bool Shows(const std::string& part) {
        return Execute("show 0 --json").find(part) != std::string::npos;
    }

    Testbed testbed;
    Cell cell{Stations()};
    std::vector<std::string> replies;
    milliseconds pause{0};
    int interrupts = 0;
    bool commandRuns = true;
    PtyBus bus{testbed, PtyPort::Start::Raw};
    CommandInterpreter interpreter{cell, bus,
                                   [this](const std::string& text) { replies.push_back(text); },
                                   [this] {
                                       interrupts += commandRuns ? 1 : 0;
                                       return commandRuns;
                                   }};
    FileDescriptor tty;
};

TEST_F(CommandInterpreterTest, SkipsEmptyLinesAndComments) {
    EXPECT_EQ(Execute(""), "");
    EXPECT_EQ(Execute("  \t"), "");
    EXPECT_EQ(Execute("# plug 0"), "");
}

TEST_F(CommandInterpreterTest, PointsToHelpForAnUnknownCommand) {
    EXPECT_EQ(Execute("jump 0"), "usage: unknown command 'jump'; \"help\" lists all commands");
    EXPECT_EQ(replies.size(), 1U);
}

TEST_F(CommandInterpreterTest, HelpPrintsEveryUsage) {
    Execute("help");
    EXPECT_GE(replies.size(), 25U);
    EXPECT_EQ(replies.front(), "  plug N                  plug master N in");
    EXPECT_EQ(replies.back(), "ok help");
    for (const std::string& line : replies) {
        EXPECT_LE(line.size(), 68U) << line;  // 80 with the program's name
    }
}

TEST_F(CommandInterpreterTest, PrintsTheUsageForInvalidArguments) {
    const std::vector<std::pair<std::string, std::string>> invalid{
        {"plug", "usage: plug N; missing argument"},
        {"plug x", "usage: plug N; invalid number 'x'"},
        {"plug 0 0", "usage: plug N; unexpected argument '0'"},
        {"part 0", "usage: part N WIDTH|none; missing argument"},
        {"part 0 wide", "usage: part N WIDTH|none; invalid number 'wide'"},
        {"part 0 -3", "usage: part N WIDTH|none; invalid width '-3': must not be negative"},
        {"fault 0 smoke on",
         "usage: fault N fault|temp-fault|temp-warn|maintenance on|off; unknown flag 'smoke'"},
        {"mode 0 256", "usage: mode N CODE; invalid number '256': the maximum is 255"},
        {"silent 0 yes", "usage: silent N on|off; invalid value 'yes': expected on or off"},
        {"delay 0 -1", "usage: delay N MS; invalid number '-1'"},
        {"send 0 \\q", "usage: send N TEXT; unknown escape '\\q'"},
        {"query-end 0 ack",
         "usage: query-end N fin|data; invalid value 'ack': expected fin or data"},
        {"param 0 1", "usage: param N INDEX SUBINDEX [BYTE,BYTE...]; missing argument"},
        {"param 0 1 0 1ff", "usage: param N INDEX SUBINDEX [BYTE,BYTE...]; invalid number '1ff'"},
        {"devinfo 0 [1]", "usage: devinfo N NUMBER,NUMBER...; invalid numbers '[1]'"},
        {"wait", "usage: wait MS; missing argument"},
        {"int now", "usage: int; unexpected argument 'now'"},
        {"show 0 all", "usage: show N [--json]; unexpected argument 'all'"},
    };
    for (const auto& [line, usage] : invalid) {
        EXPECT_EQ(Execute(line), usage) << line;
    }
}

TEST_F(CommandInterpreterTest, RejectsAnUnknownMaster) {
    EXPECT_EQ(Execute("show 2"), "error: no master 2");
}

TEST_F(CommandInterpreterTest, UnplugHangsUpRemovesTheNodeAndSendsRemove) {
    const UeventMonitor monitor(testbed.Folder());
    Do("unplug 0");
    EXPECT_EQ(NextEvent(monitor), "remove /dev/ttyACM0");
    EXPECT_FALSE(monitor.HasMessage());
    std::array<char, 8> buffer{};
    EXPECT_EQ(read(tty.Get(), buffer.data(), buffer.size()), 0);
    EXPECT_EQ(OpenTty().Get(), -1);
    EXPECT_EQ(Execute("unplug 0"), "error: the master is not plugged in");
    EXPECT_TRUE(Shows(R"("plugged":false)"));
}

TEST_F(CommandInterpreterTest, PlugCreatesTheNodeAndSendsAdd) {
    Do("unplug 0");
    const UeventMonitor monitor(testbed.Folder());
    Do("plug 0");
    EXPECT_EQ(NextEvent(monitor), "add /dev/ttyACM0");
    EXPECT_FALSE(monitor.HasMessage());
    tty = OpenTty();
    EXPECT_EQ(Ask("ID?", "FIN ID\n"), "ACK ID\nID=PELLIX\nFIN ID\n");
    EXPECT_EQ(Execute("plug 0"), "error: the master is already plugged in");
}

TEST_F(CommandInterpreterTest, HangupSendsNoEvent) {
    const UeventMonitor monitor(testbed.Folder());
    Do("hangup 0");
    EXPECT_EQ(OpenTty().Get(), -1);
    EXPECT_FALSE(monitor.HasMessage());
    Do("unplug 0");
    EXPECT_EQ(NextEvent(monitor), "remove /dev/ttyACM0");
}

TEST_F(CommandInterpreterTest, CanPlugAHungUpMaster) {
    Do("hangup 0");
    Do("plug 0");
    tty = OpenTty();
    EXPECT_EQ(Ask("ID?", "FIN ID\n"), "ACK ID\nID=PELLIX\nFIN ID\n");
}

TEST_F(CommandInterpreterTest, EventSendsTheGivenAction) {
    const UeventMonitor monitor(testbed.Folder());
    Do("event 1 change");
    EXPECT_EQ(NextEvent(monitor), "change /dev/ttyACM1");
}

TEST_F(CommandInterpreterTest, PartInsertsAndRemovesAPart) {
    Do("part 0 12.5");
    EXPECT_TRUE(Shows(R"("part":12.5)"));
    Do("part 0 none");
    EXPECT_TRUE(Shows(R"("part":null)"));
}

TEST_F(CommandInterpreterTest, FaultRaisesAndClearsFlags) {
    Do("fault 0 temp-fault on");
    EXPECT_TRUE(Shows(R"("temp-fault":true)"));
    EXPECT_TRUE(Shows(R"("stateName":"fault")"));
    Do("fault 0 temp-fault off");
    EXPECT_TRUE(Shows(R"("temp-fault":false)"));
}

TEST_F(CommandInterpreterTest, ModeIsReported) {
    Do("mode 0 5");
    EXPECT_EQ(Listen("\n", milliseconds(10000)), "@MODE=5\n");
}

TEST_F(CommandInterpreterTest, SendWritesAnyBytes) {
    Do(R"(send 0 EV=1 \x00\xff\n)");
    EXPECT_EQ(Listen("\n", milliseconds(10000)), std::string("EV=1 \0\xff\n", 8));
}

TEST_F(CommandInterpreterTest, RejectsTtyCommandsForAnUnpluggedMaster) {
    Do("unplug 0");
    for (const char* const line : {"mode 0 4", "send 0 x", "stall 0 on"}) {
        EXPECT_EQ(Execute(line), "error: the master is not plugged in");
    }
}

TEST_F(CommandInterpreterTest, SilentAndMuteMastersDoNotAnswer) {
    Do("silent 0 on");
    EXPECT_EQ(Ask("ID?", milliseconds(100)), "");
    EXPECT_TRUE(support::WaitFor([this] { return Shows(R"("requestCount":1,)"); }));
    Do("silent 0 off");
    Do("mute 0 on");
    Do("pdin 0 100");
    EXPECT_EQ(Ask("ID?", "@PDIN=[]\n@PDIN=[]\n").find("ID"), std::string::npos);
    Do("pdin 0 0");
    Listen("", milliseconds(100));  // drops the stream lines sent so far
    Do("mute 0 off");
    Do("mute 0 on MODE");
    EXPECT_EQ(Ask("MODE?", milliseconds(100)), "");
    EXPECT_EQ(Ask("ID?", "FIN ID\n"), "ACK ID\nID=PELLIX\nFIN ID\n");
}

TEST_F(CommandInterpreterTest, AnswersCanBeDelayedSplitAndReplacedByErrors) {
    Do("delay 0 50");
    const auto start = Clock::now();
    EXPECT_EQ(Ask("ID?", "FIN ID\n"), "ACK ID\nID=PELLIX\nFIN ID\n");
    EXPECT_GE(Clock::now() - start, milliseconds(50));
    Do("delay 0 0");
    Do("split 0 2");
    EXPECT_EQ(Ask("ID?", "FIN ID\n"), "ACK ID\nID=PELLIX\nFIN ID\n");
    Do("split 0 0");
    Do("error 0 9 ID");
    EXPECT_EQ(Ask("ID?", "\n"), "ERR ID 9\n");
    Do("error 0 off");
    Do("query-end 0 data");
    EXPECT_EQ(Ask("ID?", "\n"), "ID=PELLIX\n");
}

TEST_F(CommandInterpreterTest, IdentityAndParametersCanBeSet) {
    Do(R"(id 0 "A B")");
    EXPECT_EQ(Ask("ID?", "FIN ID\n"), "ACK ID\nID=\"A B\"\nFIN ID\n");
    Do("devinfo 0 1,4294967295");
    EXPECT_EQ(Ask("DEVINFO?", "FIN DEVINFO\n"),
              "ACK DEVINFO\nDEVINFO=[1,4294967295]\nFIN DEVINFO\n");
    Do("param 0 19 0 41,0");
    EXPECT_EQ(Ask("PARAM[19][0]?", "FIN PARAM[19][0]\n"),
              "ACK PARAM[19][0]\nPARAM[19][0]=[41,0]\nFIN PARAM[19][0]\n");
    Do("param 0 5 0 ");
    EXPECT_EQ(Ask("PARAM[5][0]?", "FIN PARAM[5][0]\n"),
              "ACK PARAM[5][0]\nPARAM[5][0]=[]\nFIN PARAM[5][0]\n");
}

TEST_F(CommandInterpreterTest, ReportPdoutSwitchesTheDataLine) {
    Do("mode 0 4");
    Listen("@MODE=4\n", milliseconds(10000));
    Do("report-pdout 0 off");
    EXPECT_EQ(Ask("PDOUT=[2,0]", "FIN PDOUT\n"), "ACK PDOUT\nFIN PDOUT\n");
    Do("report-pdout 0 on");
    EXPECT_EQ(Ask("PDOUT=[2,0]", "FIN PDOUT\n"), "ACK PDOUT\nPDOUT=[2,0]\nFIN PDOUT\n");
}

TEST_F(CommandInterpreterTest, StallBlocksWrites) {
    Do("stall 0 on");
    pollfd entry{tty.Get(), POLLOUT, 0};
    EXPECT_EQ(poll(&entry, 1, 0), 0);
    Do("stall 0 off");
    EXPECT_EQ(poll(&entry, 1, 0), 1);
}

TEST_F(CommandInterpreterTest, ShowPrintsTheStateOnOneLineOfJson) {
    for (const char* const line : {"show 1 --json", "show --json 1"}) {
        const std::string reply = Execute(line);
        EXPECT_TRUE(reply.starts_with(R"(state {"master":1,"model":"MZD-S",)")) << reply;
        EXPECT_EQ(replies.size(), 1U);
    }
}

TEST_F(CommandInterpreterTest, ShowPrintsTheStateInWords) {
    Execute("show 1");
    EXPECT_EQ(replies.front(), "  master    1, ID PELLIX");
    EXPECT_EQ(replies.back(), "ok show 1");
}

TEST_F(CommandInterpreterTest, WaitReturnsAPause) {
    Do("wait 250");
    EXPECT_EQ(pause, milliseconds(250));
    Do("part 0 none");
    EXPECT_EQ(pause, milliseconds(0));
}

TEST_F(CommandInterpreterTest, IntInterruptsTheCommand) {
    Do("int");
    EXPECT_EQ(interrupts, 1);
    commandRuns = false;
    EXPECT_EQ(Execute("int"), "error: COMMAND is not running");
}

/// A master without a gripper that logs its calls.
class PlainMaster final : public Master {
public:
    explicit PlainMaster(std::vector<std::string>& log) : log(log) {}

    void PowerUp(TimePoint /*now*/) override { log.emplace_back("power up"); }
    void HangUp(bool reported, TimePoint /*now*/) override {
        log.emplace_back(reported ? "reported hang-up" : "hang-up");
    }
    void Receive(std::string_view /*bytes*/, TimePoint /*now*/) override {}
    std::string NextText(TimePoint /*now*/) override { return {}; }
    std::optional<TimePoint> NextDue() const override { return std::nullopt; }

private:
    std::vector<std::string>& log;
};

class PlainMasterTest : public testing::Test {
protected:
    static std::vector<Station> Stations(std::vector<std::string>& calls) {
        std::vector<Station> stations;
        stations.emplace_back(std::make_unique<PlainMaster>(calls));
        return stations;
    }

    std::string Execute(const std::string& line) {
        replies.clear();
        interpreter.Execute(line);
        return replies.back();
    }

    std::vector<std::string> calls;
    std::vector<std::string> replies;
    Testbed testbed;
    Cell cell{Stations(calls)};
    PtyBus bus{testbed, PtyPort::Start::Raw};
    CommandInterpreter interpreter{cell, bus,
                                   [this](const std::string& text) { replies.push_back(text); },
                                   [] { return false; }};
};

TEST_F(PlainMasterTest, IsNotifiedOfItsPlug) {
    for (const char* const line : {"plug 0", "hangup 0", "hangup 0", "unplug 0", "plug 0"}) {
        EXPECT_EQ(Execute(line), "ok " + std::string(line));
    }
    Execute("unplug 0");
    EXPECT_EQ(calls, (std::vector<std::string>{"power up", "hang-up", "reported hang-up",
                                               "power up", "reported hang-up"}));
}

TEST_F(PlainMasterTest, RejectsCommandsForAGripper) {
    Execute("plug 0");
    for (const char* const line : {"part 0 12", "fault 0 fault on", "mode 0 3", "silent 0 on",
                                   "mute 0 on", "delay 0 1", "error 0 1", "send 0 a", "split 0 1",
                                   "pdin 0 1", "param 0 1 1", "devinfo 0 1", "id 0 a", "show 0"}) {
        EXPECT_EQ(Execute(line), "error: the master replays a recording and has no gripper")
            << line;
    }
    EXPECT_EQ(Execute("stall 0 on"), "ok stall 0 on");
}

}  // namespace
}  // namespace simulator
