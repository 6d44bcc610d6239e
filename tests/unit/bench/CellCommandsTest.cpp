#include "bench/CellCommands.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <string>

#include "bench/ProcessorTime.h"
#include "tests/unit/bench/MasterTty.h"
#include "tests/unit/simulator/UeventMonitor.h"

namespace bench {

class CellCommandsTest : public testing::Test {
protected:
    static std::chrono::nanoseconds Now() {
        return std::chrono::steady_clock::now().time_since_epoch();
    }

    /// The number that the line is answered with.
    std::chrono::nanoseconds Number(std::string_view line) {
        const std::string answer = commands.Execute(line);
        EXPECT_TRUE(answer.starts_with("ok ")) << answer;
        return std::chrono::nanoseconds(std::stoll(answer.substr(3)));
    }

    /// The action of the next udev event, with its tty.
    std::string NextEvent() const {
        const auto message = monitor.Receive();
        using simulator::Property;
        return message ? Property(*message, "ACTION") + " " + Property(*message, "DEVNAME") : "";
    }

    FastMasters masters{2};
    simulator::Testbed testbed;
    simulator::UeventMonitor monitor{testbed.Folder()};
    CellCommands commands{masters, testbed};
};

TEST_F(CellCommandsTest, PlugTellsWhenTheEventWasSent) {
    const auto before = Now();
    const auto sent = Number("plug 1");
    EXPECT_LE(before, sent);
    EXPECT_LE(sent, Now());
    EXPECT_EQ(NextEvent(), "add /dev/ttyACM1");
    const MasterTty tty(testbed.Folder() / "dev/ttyACM1");
}

TEST_F(CellCommandsTest, UnplugHangsTheTtyUp) {
    commands.Plug(1);
    NextEvent();
    const MasterTty tty(testbed.Folder() / "dev/ttyACM1");
    const auto before = Now();
    const auto sent = Number("unplug 1");
    EXPECT_LE(before, sent);
    EXPECT_LE(sent, Now());
    EXPECT_EQ(NextEvent(), "remove /dev/ttyACM1");
    EXPECT_EQ(tty.Read(1), "");
    EXPECT_FALSE(std::filesystem::is_symlink(testbed.Folder() / "dev/ttyACM1"));
    EXPECT_FALSE(std::filesystem::is_symlink(testbed.Folder() / "sys/class/tty/ttyACM1"));
}

TEST_F(CellCommandsTest, RateStartsAndEndsTheStream) {
    commands.Plug(0);
    const MasterTty tty(testbed.Folder() / "dev/ttyACM0");
    EXPECT_EQ(commands.Execute("rate full"), "ok");
    masters.Watch(tty.Get());
    masters.Serve();
    EXPECT_GT(Number("lines").count(), 0);
    EXPECT_EQ(commands.Execute("rate 0"), "ok");
    EXPECT_EQ(commands.Execute("rate 1000"), "ok");
}

TEST_F(CellCommandsTest, TellsItsProcessorTime) {
    const auto before = ProcessorTime();
    const auto told = Number("cpu");
    EXPECT_LE(before, told);
    EXPECT_LE(told, ProcessorTime());
}

TEST_F(CellCommandsTest, SaysWhatIsWrong) {
    for (const char* const line :
         {"", "jump", "rate", "rate fast", "rate 1 2", "plug", "plug x", "plug 2", "plug 0 1",
          "unplug 0", "unplug 2", "lines 1", "cpu 1"}) {
        EXPECT_TRUE(commands.Execute(line).starts_with("error: ")) << line;
    }
    commands.Plug(0);
    EXPECT_EQ(commands.Execute("plug 0"), "error: the master is plugged in already");
}

}  // namespace bench
