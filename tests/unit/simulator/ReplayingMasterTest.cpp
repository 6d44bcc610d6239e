#include "simulator/ReplayingMaster.h"

#include <gtest/gtest.h>

#include <climits>
#include <memory>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace simulator {
namespace {

using std::chrono::milliseconds;
using Timing = ReplayingMaster::Timing;
using Texts = std::vector<std::string>;

/// Time passes only in At().
class ReplayingMasterTest : public testing::Test {
protected:
    /// Replays a recording of master 0 that consists of `lines`, and plugs it in.
    void Play(const std::string& lines, Timing timing = Timing::AsRecorded) {
        std::vector<RecordedEvent> events;
        std::istringstream stream(lines);
        for (std::string line; std::getline(stream, line);) {
            events.push_back(ParseRecordedEvent(line));
            events.back().line = events.size();
        }
        master = std::make_unique<ReplayingMaster>(
            BuildReplayScript(events), timing,
            ReplayingMaster::Context{
                4, "cell.rec", [this](const std::string& text) { printed.push_back(text); },
                [this](const std::string& text) { commands.push_back(text); }});
        master->PowerUp(start);
    }

    void Ask(const std::string& bytes) { master->Receive(bytes, now); }

    /// Advances the time to `timeMs` after the plug. @return the texts sent, one per write
    Texts At(int timeMs) {
        Texts texts;
        const TimePoint end = start + milliseconds(timeMs);
        while (const auto due = master->NextDue()) {
            if (*due > end) {
                break;
            }
            now = std::max(now, *due);
            while (true) {
                std::string text = master->NextText(now);
                if (text.empty()) {
                    break;
                }
                texts.push_back(std::move(text));
            }
        }
        now = end;
        EXPECT_EQ(master->NextText(now), "");
        return texts;
    }

    TimePoint start{std::chrono::hours(1)};
    TimePoint now = start;
    std::unique_ptr<ReplayingMaster> master;
    Texts printed;
    Texts commands;
};

TEST_F(ReplayingMasterTest, SendsAnswersWithTheRecordedDelay) {
    Play(
        "0 0 plug\n"
        "5 0 > ID?\\n\n"
        "5.02 0 < ACK ID\\n\n"
        "5.03 0 < ID=A\\nFIN ID\\n\n");
    EXPECT_EQ(At(99), Texts());
    Ask("ID?\n");
    EXPECT_EQ(At(118), Texts());
    EXPECT_EQ(At(119), Texts{"ACK ID\n"});
    EXPECT_EQ(At(128), Texts());
    EXPECT_EQ(At(129), Texts{"ID=A\nFIN ID\n"});
    EXPECT_EQ(master->PlayedRequestCount(), 1U);
    EXPECT_EQ(master->RecordedRequestCount(), 1U);
    EXPECT_EQ(master->DeviationCount(), 0U);
}

TEST_F(ReplayingMasterTest, AnswersWithoutDelayIfConfigured) {
    Play(
        "0 0 plug\n"
        "1 0 > ID?\\n\n"
        "1.9 0 < ID=A\\n\n"
        "2 0 < @MODE=4\\n\n",
        Timing::AtOnce);
    Ask("ID?\n");
    EXPECT_EQ(At(0), Texts{"ID=A\n"});
    EXPECT_EQ(At(999), Texts()) << "unsolicited";
    EXPECT_EQ(At(1000), Texts{"@MODE=4\n"});
}

TEST_F(ReplayingMasterTest, SendsUnsolicitedTextsAtTheRecordedDistance) {
    Play(
        "10 0 plug\n"
        "10.1 0 < @MODE=3\\n\n"
        "11 0 > OPERATE()\\n\n"
        "11.2 0 < @MODE=4\\n\n"
        "12 0 > PDOUT?\\n\n"
        "12.5 0 < @MODE=5\\n\n");
    EXPECT_EQ(At(99), Texts());
    EXPECT_EQ(At(100), Texts{"@MODE=3\n"});
    EXPECT_EQ(At(5000), Texts()) << "the replay waits for the request";
    Ask("OPERATE()\n");
    EXPECT_EQ(At(5199), Texts());
    EXPECT_EQ(At(5200), Texts{"@MODE=4\n"});
    EXPECT_EQ(At(9000), Texts());
    Ask("PDOUT?\n");
    EXPECT_EQ(At(9499), Texts());
    EXPECT_EQ(At(9500), Texts{"@MODE=5\n"});
}

TEST_F(ReplayingMasterTest, AnEarlyRequestIsAnsweredWithoutWaiting) {
    Play(
        "0 0 plug\n"
        "1 0 < @PDIN=[1]\\n\n"
        "2 0 < @MODE=5\\n\n"
        "3 0 < @PDIN=[2]\\n@PDIN=[3]\\n\n"
        "4 0 < @MODE=4\\n\n"
        "5 0 > ID?\\n\n"
        "5.5 0 < ID=A\\n\n");
    Ask("ID?\n");
    EXPECT_EQ(At(0), (Texts{"@MODE=5\n", "@PDIN=[2]\n@PDIN=[3]\n", "@MODE=4\n"}))
        << "only the last text with process data";
    EXPECT_EQ(At(500), Texts{"ID=A\n"});
}

TEST_F(ReplayingMasterTest, AcceptsPartialAndMultipleRequests) {
    Play(
        "0 0 plug\n"
        "0 0 > ID?\\nMODE?\\n\n"
        "0 0 < ID=A\\n\n"
        "0 0 < MODE=3\\n\n");
    Ask("I");
    EXPECT_EQ(At(10), Texts());
    Ask("D?\n");
    EXPECT_EQ(At(20), Texts{"ID=A\n"}) << "does not wait for the other request";
    Ask("MODE?\n");
    EXPECT_EQ(At(30), Texts{"MODE=3\n"});
}

TEST_F(ReplayingMasterTest, AnUnexpectedRequestIsADeviationWithoutSideEffects) {
    Play(
        "0 0 plug\n"
        "1 0 > PDOUT=[3,1]\\n\n"
        "1 0 < FIN PDOUT\\n\n");
    Ask("PARAM[96][3]?\n");
    EXPECT_EQ(At(0), Texts{"ERR PARAM[96][3] 99\n"});
    Ask("a\tb\n");
    EXPECT_EQ(At(10), Texts());
    Ask("PDOUT=[3,1]\n");
    EXPECT_EQ(At(20), Texts{"FIN PDOUT\n"});
    Ask("PDOUT=[3,1]\n");
    EXPECT_EQ(At(30), Texts{"ERR PDOUT 99\n"});
    EXPECT_EQ(master->DeviationCount(), 3U);
    EXPECT_EQ(master->PlayedRequestCount(), 1U);
    EXPECT_EQ(printed, (Texts{"replay 4: deviation: PARAM[96][3]? instead of PDOUT=[3,1] "
                              "(cell.rec:2); answered with ERR 99",
                              R"(replay 4: deviation: a\tb instead of PDOUT=[3,1] )"
                              "(cell.rec:2); not answered",
                              "replay 4: cell.rec has ended",
                              "replay 4: deviation: PDOUT=[3,1] instead of nothing: cell.rec has "
                              "no more requests; answered with ERR 99"}));
}

TEST_F(ReplayingMasterTest, PrintsOnlyTheFirstHundredDeviations) {
    Play(
        "0 0 plug\n"
        "0 0 > ID?\\n\n");
    for (int count = 0; count < 150; ++count) {
        Ask("MODE?\n");
    }
    EXPECT_EQ(printed.size(), 101U);
    EXPECT_EQ(printed.back(), "replay 4: further deviations are counted, but not printed");
    EXPECT_EQ(master->DeviationCount(), 150U);
}

TEST_F(ReplayingMasterTest, EchoesAreNotDeviations) {
    Play(
        "0 0 plug\n"
        "1 0 > ID?\\n\n");
    Ask("@PDIN=[]\n");
    EXPECT_EQ(At(10), Texts());
    EXPECT_EQ(master->DeviationCount(), 0U);
}

TEST_F(ReplayingMasterTest, PrintsTheEndOfTheRecordingOnce) {
    Play(
        "0 0 plug\n"
        "1 0 < @MODE=4\\n\n");
    At(999);
    EXPECT_EQ(printed, Texts());
    At(1000);
    At(5000);
    EXPECT_EQ(printed, Texts{"replay 4: cell.rec has ended"});
    EXPECT_EQ(master->NextDue(), std::nullopt);
}

TEST_F(ReplayingMasterTest, FirstCommandsPlugItInAtTheRecordedTime) {
    Play("0 0 plug\n");
    EXPECT_EQ(master->FirstCommands(), "plug 4\n");
    Play("2.5 0 plug\n");
    EXPECT_EQ(master->FirstCommands(), "wait 2500\nplug 4\n");
    Play("1000234.5 0 plug\n");
    EXPECT_EQ(master->FirstCommands(), "wait 1000000000\nwait 234500\nplug 4\n");
}

TEST_F(ReplayingMasterTest, CommandsForAYearFitIntoAPipe) {
    Play("31000000 0 plug\n");
    EXPECT_LT(master->FirstCommands().size(), PIPE_BUF);
}

TEST_F(ReplayingMasterTest, RequestsRecordedUnplugsAndPlugs) {
    Play(
        "0 0 plug\n"
        "1 0 > ID?\\n\n"
        "3 0 hangup\n"
        "3.1 0 unplug\n"
        "5.1 0 plug\n"
        "5.2 0 < @MODE=3\\n\n"
        "6 0 unplug\n");
    At(10000);
    EXPECT_EQ(commands, Texts()) << "the replay waits for the request";
    Ask("ID?\n");
    At(11999);
    EXPECT_EQ(commands, Texts());
    At(12000);
    EXPECT_EQ(commands, Texts{"hangup 4\nwait 100\nunplug 4\nwait 2000\nplug 4\n"});
    Ask("MODE?\n");
    EXPECT_EQ(master->DeviationCount(), 0U) << "an unplugged master receives nothing";
    master->HangUp(false, now);
    master->HangUp(true, now);
    start = now = now + milliseconds(2100);
    master->PowerUp(now);
    EXPECT_EQ(At(100), Texts{"@MODE=3\n"});
    At(900);
    EXPECT_EQ(commands.back(), "unplug 4\n");
    EXPECT_EQ(printed, Texts{"replay 4: cell.rec has ended"});
}

TEST_F(ReplayingMasterTest, AManualPlugContinuesAfterTheNextRecordedPlug) {
    Play(
        "0 0 plug\n"
        "1 0 > ID?\\n\n"
        "2 0 unplug\n"
        "3 0 plug\n"
        "4 0 < @MODE=4\\n\n");
    master->HangUp(true, now);
    EXPECT_EQ(master->NextDue(), std::nullopt);
    master->PowerUp(now);
    EXPECT_EQ(At(1000), Texts{"@MODE=4\n"});
    master->HangUp(true, now);
    master->PowerUp(now);
    EXPECT_EQ(At(2000), Texts());
    EXPECT_EQ(printed.back(), "replay 4: cell.rec has ended");
}

TEST_F(ReplayingMasterTest, APlugDropsPendingAnswersAndPartialRequests) {
    Play(
        "0 0 plug\n"
        "1 0 > ID?\\n\n"
        "1.5 0 < ID=A\\n\n"
        "2 0 unplug\n"
        "3 0 plug\n"
        "4 0 > MODE?\\n\n"
        "4 0 < MODE=3\\n\n");
    Ask("ID?\nPDO");
    master->HangUp(true, now);
    master->PowerUp(now);
    EXPECT_EQ(At(1000), Texts());
    Ask("MODE?\n");
    EXPECT_EQ(At(1000), Texts{"MODE=3\n"});
    EXPECT_EQ(master->DeviationCount(), 0U);
}

TEST_F(ReplayingMasterTest, ARequestBeforeARecordedUnplugIsADeviation) {
    Play(
        "0 0 plug\n"
        "1 0 unplug\n");
    Ask("ID?\n");
    EXPECT_EQ(printed,
              Texts{"replay 4: deviation: ID? instead of unplug (cell.rec:2); answered with "
                    "ERR 99"});
}

}  // namespace
}  // namespace simulator
