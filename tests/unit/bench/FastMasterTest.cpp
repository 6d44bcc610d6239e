#include "bench/FastMaster.h"

#include <gtest/gtest.h>
#include <poll.h>

#include <string>

#include "tests/support/Allocations.h"
#include "tests/unit/bench/EmptyFile.h"
#include "tests/unit/bench/MasterTty.h"

namespace bench {

class FastMasterTest : public testing::Test {
protected:
    static constexpr std::string_view kLine = "@PDIN=[9,c4,0,3]\n";
    static constexpr std::string_view kAnswer = "ACK PDOUT\nFIN PDOUT\n";

    /// Hands a request over and lets the master answer.
    void Request(std::string_view text) {
        tty.Send(text);
        pollfd entry{master.Descriptor(), POLLIN, 0};
        ASSERT_EQ(poll(&entry, 1, 10000), 1);
        master.Receive();
    }

    /// Streams until the tty takes no more.
    void FillTty() {
        for (std::uint64_t before = lineCount + 1; before != lineCount;) {
            before = lineCount;
            master.Stream(FastMaster::kLinesPerWrite);
        }
    }

    /// Reads until there is room for what the master has to send.
    std::string MakeRoom() {
        std::string text;
        pollfd entry{master.Descriptor(), POLLOUT, 0};
        while (poll(&entry, 1, 0) != 1) {
            text += tty.ReadSome();
        }
        return text;
    }

    /// Reads all that the master has to send, and one line of process data after it.
    std::string ReadAll() {
        std::string text;
        while (master.WaitsForRoom()) {
            text += tty.ReadSome();
            master.Flush();
        }
        master.Stream(1);
        while (!text.ends_with(std::string(kAnswer) + std::string(kLine))) {
            const std::string piece = tty.ReadSome();
            if (piece.empty()) {
                ADD_FAILURE() << "no answer at the end";
                break;
            }
            text += piece;
        }
        return text;
    }

    std::uint64_t lineCount = 0;
    EmptyFile finFile;
    SharedTime finTime{finFile.path};
    FastMaster master{7, lineCount, &finTime};
    MasterTty tty{master.NodePath()};
};

TEST_F(FastMasterTest, AnswersAllRequestsOfOneRead) {
    Request("PDOUT=[3,1]\nPARAM[21][0]?\nPDOUT=[0");
    const std::string answers =
        std::string(kAnswer) + "ACK PARAM[21][0]\nPARAM[21][0]=[42,30,37]\nFIN PARAM[21][0]\n";
    EXPECT_EQ(tty.Read(answers.size()), answers);
    Request(",0]\n");
    EXPECT_EQ(tty.Read(kAnswer.size()), kAnswer);
    EXPECT_FALSE(master.WaitsForRoom());
}

TEST_F(FastMasterTest, LeavesTheTimeOfACommandsFin) {
    Request("MODE?\nPDOUT?\n");
    EXPECT_FALSE(finTime.Take()) << "requests of the daemon's own come between";
    const auto before = SharedTime::Clock::now();
    Request("PDOUT=[3,1]\nMODE?\n");
    const auto time = finTime.Take();
    ASSERT_TRUE(time);
    EXPECT_GE(*time, before);
    EXPECT_LE(*time, SharedTime::Clock::now());
}

TEST_F(FastMasterTest, StreamsAsManyLinesAsItIsTold) {
    master.Stream(1);
    master.Stream(2);
    EXPECT_EQ(tty.Read(3 * kLine.size()),
              std::string(kLine) + std::string(kLine) + std::string(kLine));
    EXPECT_EQ(lineCount, 3U);
    master.Stream(FastMaster::kLinesPerWrite + 1);
    EXPECT_EQ(lineCount, 3 + FastMaster::kLinesPerWrite) << "one write takes no more";
}

TEST_F(FastMasterTest, WhatHasNoRoomIsLostButNoLineIsCut) {
    FillTty();
    const std::uint64_t fitting = lineCount;
    std::string text = tty.Read(fitting * kLine.size());
    master.Stream(2);
    ASSERT_GT(lineCount, fitting);
    text += tty.Read(lineCount * kLine.size() - text.size());
    for (std::size_t start = 0; start < text.size(); start += kLine.size()) {
        ASSERT_EQ(text.substr(start, kLine.size()), kLine) << "at " << start;
    }
}

TEST_F(FastMasterTest, AnswersWaitForRoomAndNothingOvertakesThem) {
    FillTty();
    std::size_t requests = 0;
    for (; !master.WaitsForRoom() || requests < 100; ++requests) {
        Request("PDOUT=[3,1]\n");
    }
    const std::uint64_t streamed = lineCount;
    std::string text = MakeRoom();
    master.Stream(1);
    EXPECT_EQ(lineCount, streamed);
    text += ReadAll();
    EXPECT_EQ(CountOf(kAnswer, text), requests);
    EXPECT_EQ(CountOf(kLine, text), lineCount);
    EXPECT_EQ(text.size(), lineCount * kLine.size() + requests * kAnswer.size())
        << "no line is cut";
}

TEST_F(FastMasterTest, AnswersThatNobodyReadsAreLostInTheEnd) {
    FillTty();
    for (int count = 0; count < 1000; ++count) {
        Request("PDOUT=[3,1]\n");
    }
    const std::size_t answered = CountOf(kAnswer, ReadAll());
    EXPECT_GE(answered, 4096 / kAnswer.size());
    EXPECT_LT(answered, 1000U);
}

TEST_F(FastMasterTest, AllocatesNothingWhileItServes) {
    tty.Send("PDOUT=[3,1]\nPARAM[40][0]?\nPARAM[41][0]?\n");
    pollfd entry{master.Descriptor(), POLLIN, 0};
    ASSERT_EQ(poll(&entry, 1, 10000), 1);
    const support::FailingAllocations failing({});
    EXPECT_NO_THROW(master.Receive());
    EXPECT_NO_THROW(master.Stream(FastMaster::kLinesPerWrite));
}

}  // namespace bench
