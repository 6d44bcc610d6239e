#include "simulator/ReplayScript.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "simulator/TextTools.h"

namespace simulator {
namespace {

using Texts = std::vector<std::string>;
using std::chrono::milliseconds;

class ReplayScriptTest : public testing::Test {
protected:
    void Add(int timeMs, RecordedKind kind, const std::string& bytes = {}) {
        events.push_back({milliseconds(timeMs), 0, kind, bytes, events.size() + 1});
    }
    void Ask(int timeMs, const std::string& bytes) { Add(timeMs, RecordedKind::ToMaster, bytes); }
    void Say(int timeMs, const std::string& bytes) { Add(timeMs, RecordedKind::FromMaster, bytes); }

    /// Every step as "TIME WORD TEXT", each followed by its answers as "  +DELAY TEXT".
    Texts Script() const {
        Texts texts;
        for (const ReplayStep& step : BuildReplayScript(events)) {
            texts.push_back(Milliseconds(step.time) + " " + std::string(RecordedWord(step.kind)) +
                            " " + Escape(step.bytes));
            for (const RecordedAnswer& answer : step.answers) {
                texts.push_back("  +" + Milliseconds(answer.delay) + " " + Escape(answer.text));
            }
        }
        return texts;
    }

    static std::string Milliseconds(std::chrono::microseconds time) {
        return std::to_string(std::chrono::round<milliseconds>(time).count());
    }

    std::vector<RecordedEvent> events;
};

TEST_F(ReplayScriptTest, AssignsAnswersToTheirRequests) {
    Add(0, RecordedKind::Plug);
    Ask(100, "ID?\n");
    Say(107, "ACK ID\nID=PELLIX\nFIN ID\n");
    Ask(200, "PARAM[40][0]?\n");
    Say(203, "ERR PARAM[40][0] 3\n");
    EXPECT_EQ(Script(), (Texts{"0 plug ", "100 > ID?", R"(  +7 ACK ID\nID=PELLIX\nFIN ID\n)",
                               "200 > PARAM[40][0]?", R"(  +3 ERR PARAM[40][0] 3\n)"}));
}

TEST_F(ReplayScriptTest, KeepsThePiecesOfAnAnswer) {
    Ask(0, "PD");
    Ask(10, "OUT=[3,1]\n");
    Say(11, "ACK PDO");
    Say(12, "UT\nPDOUT=[3,1]\nF");
    Say(13, "IN PDOUT\n");
    EXPECT_EQ(Script(), (Texts{"10 > PDOUT=[3,1]", "  +1 ACK PDO", R"(  +2 UT\nPDOUT=[3,1]\nF)",
                               R"(  +3 IN PDOUT\n)"}));
}

TEST_F(ReplayScriptTest, KeepsUnsolicitedTextsSeparate) {
    Ask(0, "OPERATE()\n");
    Say(1, "@PDIN=[]\nACK OPERATE\nFIN OPERATE\n@MODE=4\n");
    Say(5, "@PDIN=[0,");
    Say(6, "0,0,0]\n");
    Say(7, "nonsense\n");
    EXPECT_EQ(Script(),
              (Texts{"0 > OPERATE()", R"(  +1 ACK OPERATE\nFIN OPERATE\n)", R"(1 < @PDIN=[]\n)",
                     R"(1 < @MODE=4\n)", "5 < @PDIN=[0,", R"(6 < 0,0,0]\n)", R"(7 < nonsense\n)"}));
}

TEST_F(ReplayScriptTest, AssignsAnswersToConcurrentRequests) {
    Ask(0, "PARAM[96][3]?\nPDOUT=[3,1]\n");
    Say(2, "ACK PDOUT\nFIN PDOUT\nACK PARAM[96][3]\n");
    Say(4, "PARAM[96][3]=[32]\nFIN PARAM[96][3]\n");
    EXPECT_EQ(Script(), (Texts{"0 > PARAM[96][3]?", R"(  +2 ACK PARAM[96][3]\n)",
                               R"(  +4 PARAM[96][3]=[32]\nFIN PARAM[96][3]\n)", "0 > PDOUT=[3,1]",
                               R"(  +2 ACK PDOUT\nFIN PDOUT\n)"}));
}

TEST_F(ReplayScriptTest, AnswersTheOlderOfTwoEqualRequestsFirst) {
    Ask(0, "ID?\n");
    Ask(1, "ID?\n");
    Say(2, "ACK ID\nID=A\nFIN ID\n");
    Say(3, "ID=B\n");
    EXPECT_EQ(Script(),
              (Texts{"0 > ID?", R"(  +2 ACK ID\nID=A\nFIN ID\n)", "1 > ID?", R"(  +2 ID=B\n)"}));
}

TEST_F(ReplayScriptTest, AcceptsADataLineAsACompleteAnswer) {
    Ask(0, "ID?\n");
    Say(1, "ID=A\n");
    Ask(2, "ID?\n");
    Say(4, "ID=B\n");
    EXPECT_EQ(Script(), (Texts{"0 > ID?", R"(  +1 ID=A\n)", "2 > ID?", R"(  +2 ID=B\n)"}));
}

TEST_F(ReplayScriptTest, ALateAnswerIsUnsolicited) {
    Ask(0, "ID?\n");
    Ask(1100, "ID?\n");
    Say(1101, "ACK ID\nID=A\nFIN ID\n");
    Ask(2000, "MODE?\n");
    Say(3001, "ACK MODE\n");
    EXPECT_EQ(Script(), (Texts{"0 > ID?", "1100 > ID?", R"(  +1 ACK ID\nID=A\nFIN ID\n)",
                               "2000 > MODE?", R"(3001 < ACK MODE\n)"}));
}

TEST_F(ReplayScriptTest, KeepsLinesThatAreNotRequests) {
    Ask(0, "hello\n");
    Say(1, "hello\n");
    EXPECT_EQ(Script(), (Texts{"0 > hello", R"(1 < hello\n)"}));
}

TEST_F(ReplayScriptTest, DropsEchoes) {
    Ask(0, "@PDIN=[]\n@PDI");
    Ask(1, "ID?\nID?\n");
    EXPECT_EQ(Script(), Texts{"1 > ID?"});
}

TEST_F(ReplayScriptTest, APlugEndsPendingRequestsAndPartialLines) {
    Add(0, RecordedKind::Plug);
    Ask(1, "MODE?\nID");
    Say(2, "ACK MO");
    Add(3, RecordedKind::HangUp);
    Add(4, RecordedKind::Unplug);
    Add(5, RecordedKind::Plug);
    Ask(6, "?\n");
    Say(7, "DE\nMODE=3\n");
    EXPECT_EQ(Script(), (Texts{"0 plug ", "1 > MODE?", "2 < ACK MO", "3 hangup ", "4 unplug ",
                               "5 plug ", "6 > ?", R"(7 < DE\nMODE=3\n)"}));
}

TEST_F(ReplayScriptTest, DropsAPartialLineAtAPlug) {
    Add(0, RecordedKind::Plug);
    Say(1, "@PDIN=[");
    Add(2, RecordedKind::Unplug);
    Add(3, RecordedKind::Plug);
    Ask(4, "ID?\n");
    Say(5, "ID=A\n");
    EXPECT_EQ(Script(), (Texts{"0 plug ", "1 < @PDIN=[", "2 unplug ", "3 plug ", "4 > ID?",
                               R"(  +1 ID=A\n)"}));
}

TEST_F(ReplayScriptTest, RecognizesEchoes) {
    for (const char* const line :
         {"@PDIN=[]", "@PDIID?", "ACK ID", "FIN ID", "ERR ID 1", "ERR @PDIID?", "ID=PELLIX\r"}) {
        EXPECT_TRUE(IsEcho(line)) << line;
    }
    for (const char* const line : {"ID?", "PDOUT=[3,1]", "OPERATE()", "", "ERROR?"}) {
        EXPECT_FALSE(IsEcho(line)) << line;
    }
}

TEST_F(ReplayScriptTest, RecognizesProcessData) {
    EXPECT_TRUE(IsProcessData("@PDIN=[]\n"));
    EXPECT_TRUE(IsProcessData("@PDIN=[1]\n@PDIN=[2]\n"));
    for (const char* const text : {"@PDIN=[1", "@PDIN=[1]\n@MODE=4\n", "PDIN=[]\n"}) {
        EXPECT_FALSE(IsProcessData(text)) << text;
    }
}

}  // namespace
}  // namespace simulator
