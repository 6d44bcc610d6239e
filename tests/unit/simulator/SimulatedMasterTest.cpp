#include "simulator/SimulatedMaster.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <string>

namespace simulator {
namespace {

using std::chrono::milliseconds;

/// Time passes only in After(). The stream is off by default.
class SimulatedMasterTest : public testing::Test {
protected:
    explicit SimulatedMasterTest(const char* model = "HVA")
        : master(Settings(), *FindGripperModel(model), {'H', 'V'}, {'1'}, now) {}

    static MasterSettings Settings() {
        MasterSettings settings;
        settings.streamRate = 0;
        return settings;
    }

    /// Advances the time. @return the text sent
    std::string After(milliseconds time) {
        std::string all;
        for (const TimePoint end = now + time; now <= end; now += milliseconds(1)) {
            for (auto text = master.NextText(now); !text.empty(); text = master.NextText(now)) {
                all += text;
            }
        }
        return all;
    }

    std::string Ask(const std::string& line) {
        master.Receive(line + "\n", now);
        return After(milliseconds(0));
    }

    void Operate() {
        master.SetMode(mode::kOperate, now);
        ASSERT_EQ(After(milliseconds(0)), "@MODE=4\n");
    }

    TimePoint now{std::chrono::hours(1)};
    SimulatedMaster master;
};

class TlmMasterTest : public SimulatedMasterTest {
protected:
    TlmMasterTest() : SimulatedMasterTest("TLM") {}
};

TEST(QueryEndTest, IsReadFromItsName) {
    EXPECT_EQ(ParseQueryEnd("fin"), QueryEnd::Finish);
    EXPECT_EQ(ParseQueryEnd("data"), QueryEnd::DataLine);
}

TEST_F(SimulatedMasterTest, AnswersAQueryWithAckDataLineAndFin) {
    EXPECT_EQ(Ask("ID?"), "ACK ID\nID=PELLIX\nFIN ID\n");
    EXPECT_EQ(Ask("MODE?"), "ACK MODE\nMODE=3\nFIN MODE\n");
    EXPECT_EQ(Ask("PARAM[19][0]?"), "ACK PARAM[19][0]\nPARAM[19][0]=[48,56]\nFIN PARAM[19][0]\n");
}

TEST_F(SimulatedMasterTest, AnswersAQueryWithOnlyADataLineIfConfigured) {
    master.SetQueryEnd(QueryEnd::DataLine);
    EXPECT_EQ(Ask("ID?"), "ID=PELLIX\n");
    EXPECT_EQ(Ask("DOUTINFO=1"), "ACK DOUTINFO\nFIN DOUTINFO\n");
}

TEST_F(SimulatedMasterTest, DeviceInformationContainsLengthsAndModel) {
    EXPECT_EQ(Ask("DEVINFO?"), "ACK DEVINFO\nDEVINFO=[1,3,17,32,16,20,0,31249,20]\nFIN DEVINFO\n");
    master.SetDeviceInfo("7");
    EXPECT_EQ(Ask("DEVINFO?"), "ACK DEVINFO\nDEVINFO=[7]\nFIN DEVINFO\n");
}

TEST_F(SimulatedMasterTest, KeepsWrittenParameters) {
    EXPECT_EQ(Ask("PARAM[96][3]=[2c]"), "ACK PARAM[96][3]\nFIN PARAM[96][3]\n");
    EXPECT_EQ(Ask("PARAM[96][3]?"), "ACK PARAM[96][3]\nPARAM[96][3]=[2c]\nFIN PARAM[96][3]\n");
}

TEST_F(SimulatedMasterTest, AnswersInvalidRequestsWithErr) {
    EXPECT_EQ(Ask("WHAT?"), "ERR WHAT 1\n");
    EXPECT_EQ(Ask("id?"), "ERR id 1\n");
    EXPECT_EQ(Ask("WHAT=1"), "ERR WHAT 1\n");
    EXPECT_EQ(Ask("WHAT()"), "ERR WHAT 1\n");
    EXPECT_EQ(Ask("ID=1"), "ERR ID 1\n");
    EXPECT_EQ(Ask("PARAM[96][3]=2c"), "ERR PARAM[96][3] 2\n");
    EXPECT_EQ(Ask("PARAM[96][3]=[2C]"), "ERR PARAM[96][3] 2\n");
    EXPECT_EQ(Ask("DOUTINFO=-1"), "ERR DOUTINFO 2\n");
    EXPECT_EQ(Ask("FALLBACK(2)"), "ERR FALLBACK 2\n");
    EXPECT_EQ(Ask("OPERATE(1)"), "ERR OPERATE 2\n");
    EXPECT_EQ(Ask("PARAM[40][0]?"), "ERR PARAM[40][0] 3\n");
    EXPECT_EQ(Ask("PARAM[96][3]=[1,2]"), "ERR PARAM[96][3] 4\n");
    EXPECT_EQ(Ask("PARAM[19][0]=[41,42]"), "ERR PARAM[19][0] 7\n");
}

TEST_F(SimulatedMasterTest, DoesNotAnswerOtherLines) {
    EXPECT_EQ(Ask("FIN ID"), "");
    EXPECT_EQ(Ask("ID?\r"), "");
    EXPECT_EQ(Ask(""), "");
    EXPECT_EQ(master.RequestLines().size(), 3U);
}

TEST_F(SimulatedMasterTest, AcceptsARequestInPieces) {
    master.Receive("I", now);
    master.Receive("D", now);
    EXPECT_EQ(After(milliseconds(5)), "");
    EXPECT_EQ(Ask("?"), "ACK ID\nID=PELLIX\nFIN ID\n");
}

TEST_F(SimulatedMasterTest, AnswersSeveralRequestsInOrder) {
    EXPECT_EQ(Ask("ID?\nWHAT?"), "ACK ID\nID=PELLIX\nFIN ID\nERR WHAT 1\n");
}

TEST_F(SimulatedMasterTest, DropsAnOverlongLine) {
    EXPECT_EQ(Ask(std::string(5000, 'x') + "ID?"), "");
    EXPECT_TRUE(master.RequestLines().empty());
    EXPECT_EQ(Ask("ID?"), "ACK ID\nID=PELLIX\nFIN ID\n");
}

TEST_F(SimulatedMasterTest, KeepsTheLastFiftyLines) {
    for (int number = 0; number < 60; ++number) {
        Ask(std::string("X").append(std::to_string(number)) + "?");
    }
    ASSERT_EQ(master.RequestLines().size(), 50U);
    EXPECT_EQ(master.RequestLines().front(), "X10?");
    EXPECT_EQ(master.RequestLines().back(), "X59?");
    EXPECT_EQ(master.RequestCount(), 60U);
}

TEST_F(SimulatedMasterTest, ReportsOperateAfterItsAnswer) {
    EXPECT_EQ(Ask("OPERATE()"), "ACK OPERATE\nFIN OPERATE\n");
    EXPECT_EQ(After(milliseconds(20)), "@MODE=4\n");
    EXPECT_EQ(master.Mode(), mode::kOperate);
    EXPECT_EQ(Ask("OPERATE()"), "ACK OPERATE\nFIN OPERATE\n");
    EXPECT_EQ(After(milliseconds(20)), "");
}

TEST_F(SimulatedMasterTest, RestartStepsThroughTheModes) {
    Operate();
    Ask("RESTART()");
    EXPECT_EQ(After(milliseconds(10)), "@MODE=1\n");
    EXPECT_EQ(After(milliseconds(50)), "@MODE=2\n");
    EXPECT_EQ(After(milliseconds(50)), "@MODE=3\n");
    EXPECT_EQ(After(milliseconds(500)), "");
}

TEST_F(SimulatedMasterTest, EntersAndLeavesFallback) {
    Ask("FALLBACK(1)");
    EXPECT_EQ(After(milliseconds(20)), "@MODE=5\n");
    EXPECT_EQ(Ask("OPERATE()"), "ERR OPERATE 6\n");
    Ask("FALLBACK(0)");
    EXPECT_EQ(After(milliseconds(500)), "@MODE=1\n@MODE=2\n@MODE=3\n");
    Ask("FALLBACK(0)");
    EXPECT_EQ(After(milliseconds(500)), "");
}

TEST_F(SimulatedMasterTest, SysresetIsAPowerCycle) {
    Ask("DOUTINFO=5");
    Ask("STORECONFIG()");
    Ask("DOUTINFO=6");
    Ask("PARAM[96][3]=[2c]");
    Ask("SYSRESET()");
    EXPECT_EQ(After(milliseconds(500)), "@MODE=1\n@MODE=2\n@MODE=3\n");
    EXPECT_EQ(Ask("DOUTINFO?"), "ACK DOUTINFO\nDOUTINFO=5\nFIN DOUTINFO\n");
    EXPECT_EQ(Ask("PARAM[96][3]?"), "ACK PARAM[96][3]\nPARAM[96][3]=[32]\nFIN PARAM[96][3]\n");
}

TEST_F(SimulatedMasterTest, TheGripperAnswersOnlyInPreoperateAndOperate) {
    for (const unsigned code : {0U, 1U, 2U, 5U, 6U, 7U, 9U}) {
        master.SetMode(code, now);
        After(milliseconds(0));
        EXPECT_EQ(Ask("DEVINFO?"), "ERR DEVINFO 6\n") << code;
        EXPECT_EQ(Ask("PARAM[96][3]?"), "ERR PARAM[96][3] 6\n") << code;
        EXPECT_EQ(Ask("PARAM[96][3]=[1]"), "ERR PARAM[96][3] 6\n") << code;
    }
}

TEST_F(SimulatedMasterTest, HasProcessDataOnlyInOperate) {
    EXPECT_EQ(Ask("PDOUT?"), "ERR PDOUT 6\n");
    EXPECT_EQ(Ask("PDIN?"), "ERR PDIN 6\n");
    EXPECT_EQ(Ask("PDOUT=[3,0]"), "ERR PDOUT 6\n");
    Operate();
    EXPECT_EQ(Ask("PDOUT?"), "ACK PDOUT\nPDOUT=[0,0]\nFIN PDOUT\n");
    EXPECT_EQ(Ask("PDIN?"), "ACK PDIN\nPDIN=[3,e8,80,1]\nFIN PDIN\n");
}

TEST_F(SimulatedMasterTest, AnswersAnAssignmentOfPdoutWithPdoutIfConfigured) {
    Operate();
    EXPECT_EQ(Ask("PDOUT=[3,1]"), "ACK PDOUT\nPDOUT=[3,1]\nFIN PDOUT\n");
    master.SetReportProcessOutput(false);
    EXPECT_EQ(Ask("PDOUT=[3,2]"), "ACK PDOUT\nFIN PDOUT\n");
    EXPECT_EQ(Ask("PDOUT?"), "ACK PDOUT\nPDOUT=[3,2]\nFIN PDOUT\n");
    EXPECT_EQ(Ask("PDOUT=[3]"), "ERR PDOUT 4\n");
    EXPECT_EQ(Ask("PDOUT=3"), "ERR PDOUT 2\n");
}

TEST_F(SimulatedMasterTest, LeavingOperateDisablesTheDrive) {
    Operate();
    Ask("PDOUT=[6,0]");
    EXPECT_EQ(master.Gripper().State(), GripperState::Referencing);
    master.SetMode(mode::kPreoperate, now);
    EXPECT_EQ(master.Gripper().State(), GripperState::NeedsReference);
    After(milliseconds(0));
    Operate();
    EXPECT_EQ(Ask("PDOUT?"), "ACK PDOUT\nPDOUT=[0,0]\nFIN PDOUT\n");
}

TEST_F(SimulatedMasterTest, APowerFaultPowerCyclesTheGripper) {
    Ask("PARAM[96][3]=[2c]");
    master.SetMode(mode::kPowerFault, now);
    EXPECT_EQ(*master.Gripper().Parameters().Find({96, 3}), Bytes{50});
}

TEST_F(TlmMasterTest, TheStreamContainsTheMovingPosition) {
    Operate();
    master.SetStreamRate(10, now);
    Ask("PDOUT=[3,0]");
    // From 10.00 mm inwards at 80 mm/s: 2.00 mm, the no-part limit, is reached after 100 ms.
    const std::string lines = After(milliseconds(250));
    EXPECT_NE(lines.find("@PDIN=["), std::string::npos);
    EXPECT_TRUE(lines.ends_with("@PDIN=[0,c8,29,7]\n")) << lines;
}

TEST_F(SimulatedMasterTest, TheStreamIsEmptyOutsideOfOperate) {
    master.SetStreamRate(100, now);
    EXPECT_EQ(After(milliseconds(20)), "@PDIN=[]\n@PDIN=[]\n");
}

TEST_F(SimulatedMasterTest, StreamsAtTheConfiguredRate) {
    master.SetStreamRate(100, now);
    const std::string lines = After(milliseconds(1000));
    EXPECT_EQ(std::count(lines.begin(), lines.end(), '\n'), 100);
}

TEST_F(SimulatedMasterTest, NothingIsDueWithoutAStream) {
    EXPECT_EQ(master.NextDue(), std::nullopt);
    master.SetStreamRate(100, now);
    ASSERT_TRUE(master.NextDue());
    EXPECT_GT(*master.NextDue(), now);
    EXPECT_LE(*master.NextDue(), now + milliseconds(10));
}

TEST_F(SimulatedMasterTest, TheAnswerDelayDoesNotDelayTheStream) {
    master.SetAnswerDelay(milliseconds(50));
    master.SetStreamRate(100, now);
    master.Receive("ID?\n", now);
    EXPECT_EQ(After(milliseconds(30)), "@PDIN=[]\n@PDIN=[]\n@PDIN=[]\n");
    EXPECT_NE(After(milliseconds(30)).find("ACK ID\nID=PELLIX\nFIN ID\n"), std::string::npos);
}

TEST_F(SimulatedMasterTest, TheStreamDoesNotInterruptAnAnswerInPieces) {
    master.SetPieceLength(3);
    master.SetStreamRate(1000, now);
    master.Receive("ID?\n", now);
    EXPECT_NE(After(milliseconds(30)).find("ACK ID\nID=PELLIX\nFIN ID\n"), std::string::npos);
}

TEST_F(SimulatedMasterTest, ASilentMasterSendsAndExecutesNothing) {
    master.SetStreamRate(100, now);
    master.SetSilent(true);
    EXPECT_EQ(Ask("PARAM[96][3]=[2c]"), "");
    master.SetMode(mode::kOperate, now);
    EXPECT_EQ(After(milliseconds(100)), "");
    EXPECT_EQ(master.RequestLines().back(), "PARAM[96][3]=[2c]");
    master.SetSilent(false);
    EXPECT_EQ(Ask("PARAM[96][3]?"), "ACK PARAM[96][3]\nPARAM[96][3]=[32]\nFIN PARAM[96][3]\n");
}

TEST_F(SimulatedMasterTest, AMasterMutedForOneKeyAnswersOthers) {
    master.SetMute(true, "MODE");
    EXPECT_EQ(Ask("MODE?"), "");
    EXPECT_EQ(master.RequestLines().back(), "MODE?");
    EXPECT_NE(Ask("ID?"), "");
    master.SetMute(false, "MODE");
    EXPECT_NE(Ask("MODE?"), "");
}

TEST_F(SimulatedMasterTest, MutingAllKeysResetsTheSingleKeys) {
    master.SetMute(true, "MODE");
    master.SetMute(true);
    master.SetMute(false);
    EXPECT_NE(Ask("MODE?"), "");
}

TEST_F(SimulatedMasterTest, AMuteMasterContinuesToStream) {
    master.SetMute(true);
    EXPECT_EQ(Ask("ID?"), "");
    master.SetStreamRate(100, now);
    EXPECT_EQ(After(milliseconds(10)), "@PDIN=[]\n");
    master.SetMute(false);
    EXPECT_EQ(Ask("ID?").substr(0, 7), "ACK ID\n");
}

TEST_F(SimulatedMasterTest, InjectsErrorsForOneKeyOrAll) {
    master.SetError("9", "PARAM[96][3]");
    EXPECT_EQ(Ask("PARAM[96][3]=[2c]"), "ERR PARAM[96][3] 9\n");
    EXPECT_EQ(Ask("MODE?"), "ACK MODE\nMODE=3\nFIN MODE\n");
    master.SetError("abc", std::nullopt);
    EXPECT_EQ(Ask("MODE?"), "ERR MODE abc\n");
    EXPECT_EQ(Ask("PARAM[96][3]?"), "ERR PARAM[96][3] 9\n");
    master.ClearError("PARAM[96][3]");
    EXPECT_EQ(Ask("PARAM[96][3]?"), "ERR PARAM[96][3] abc\n");
    master.ClearError(std::nullopt);
    EXPECT_EQ(Ask("PARAM[96][3]?"), "ACK PARAM[96][3]\nPARAM[96][3]=[32]\nFIN PARAM[96][3]\n")
        << "the failed request was not executed";
}

TEST_F(SimulatedMasterTest, SendsRawTextUnchanged) {
    master.SendRaw(std::string("a\0b", 3), now);
    EXPECT_EQ(After(milliseconds(0)), std::string("a\0b", 3));
}

TEST_F(SimulatedMasterTest, PowerUpDropsPendingTextsAndPartialRequests) {
    master.SetAnswerDelay(milliseconds(10));
    master.Receive("ID?\nRESTART()\nMO", now);
    master.PowerUp(now);
    EXPECT_EQ(After(milliseconds(500)), "");
    master.SetAnswerDelay(milliseconds(0));
    EXPECT_EQ(Ask("DE?"), "ERR DE 1\n");
}

TEST_F(SimulatedMasterTest, FillBufferQueuesMoreThanAPacket) {
    master.FillBuffer(now);
    EXPECT_EQ(After(milliseconds(0)), "") << "nothing is queued without a stream";
    master.SetStreamRate(1, now);
    master.FillBuffer(now);
    EXPECT_GT(After(milliseconds(0)).size(), 64U);
}

TEST(SimulatedMasterStartTest, StartsInTheConfiguredMode) {
    MasterSettings settings;
    settings.startMode = mode::kStartup;
    const SimulatedMaster master(settings, *FindGripperModel("TLM"), {}, {}, TimePoint());
    EXPECT_EQ(master.Mode(), mode::kStartup);
}

}  // namespace
}  // namespace simulator
