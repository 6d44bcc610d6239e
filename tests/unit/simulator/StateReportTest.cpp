#include "simulator/StateReport.h"

#include <gtest/gtest.h>

#include <string>

namespace simulator {
namespace {

class StateReportTest : public testing::Test {
protected:
    explicit StateReportTest(const char* model = "HVA")
        : master(MasterSettings(), *FindGripperModel(model), {'H'}, {'1'}, now) {}

    /// Whether the report contains `member`, a name and its value.
    testing::AssertionResult Has(const std::string& member) {
        const std::string report = StateReport(3, master, nullptr, nullptr);
        if (report.find("," + member + ",") != std::string::npos ||
            report.starts_with("{" + member + ",") || report.ends_with("," + member + "}")) {
            return testing::AssertionSuccess();
        }
        return testing::AssertionFailure() << member << " is not in " << report;
    }

    TimePoint now{std::chrono::hours(1)};
    SimulatedMaster master;
};

class MzdReportTest : public StateReportTest {
protected:
    MzdReportTest() : StateReportTest("MZD-L") {}
};

TEST_F(StateReportTest, ReportsANewMaster) {
    EXPECT_TRUE(Has(R"("master":3)"));
    EXPECT_TRUE(Has(R"("model":"HVA")"));
    EXPECT_TRUE(Has(R"("id":"PELLIX")"));
    EXPECT_TRUE(Has(R"("plugged":false)"));
    EXPECT_TRUE(Has(R"("raw":false)"));
    EXPECT_TRUE(Has(R"("mode":3)"));
    EXPECT_TRUE(Has(R"("rate":100)"));
    EXPECT_TRUE(Has(R"("position":10)"));
    EXPECT_TRUE(Has(R"("part":null)"));
    EXPECT_TRUE(Has(R"("state":1)"));
    EXPECT_TRUE(Has(R"("stateName":"needs reference")"));
    EXPECT_TRUE(Has(R"("pdin":[])"));
    EXPECT_TRUE(Has(R"("pdout":[0,0])"));
    EXPECT_TRUE(Has(R"("leds":{"preset":0,"leds":[]})"));
    EXPECT_TRUE(Has(R"("devinfo":"1,3,17,32,16,20,0,31249,20")"));
    EXPECT_TRUE(Has(R"("requests":[])"));
    EXPECT_TRUE(Has(R"("96/3":[50])"));
}

TEST_F(StateReportTest, ReportsLargePositions) {
    master.Gripper(now).SetPart(2147483647.0);
    EXPECT_TRUE(Has(R"("part":2147483647)"));
    master.Gripper(now).SetPart(3e9);
    EXPECT_TRUE(Has(R"("part":3000000000.0)"));
}

TEST_F(StateReportTest, ReportsChanges) {
    master.SetMode(mode::kOperate, now);
    master.Gripper(now).SetPart(12.5);
    master.Gripper(now).SetFlag(GripperFlag::TemperatureWarning, true);
    master.Receive("PDOUT=[2,1]\n", now);
    EXPECT_TRUE(Has(R"("mode":4)"));
    EXPECT_TRUE(Has(R"("part":12.5)"));
    EXPECT_TRUE(
        Has(R"("faults":{"fault":false,"temp-fault":false,"temp-warn":true,"maintenance":false})"));
    EXPECT_TRUE(Has(R"("pdin":[3,232,136,65])"));
    EXPECT_TRUE(Has(R"("pdout":[2,1])"));
    EXPECT_TRUE(Has(R"("requestCount":1)"));
    EXPECT_TRUE(Has(R"("requests":["PDOUT=[2,1]"])"));
}

TEST_F(StateReportTest, EscapesSpecialBytes) {
    master.SetId("a\"\\\n\xff");
    EXPECT_TRUE(Has(R"("id":"a\"\\\n\u00ff")"));
}

TEST_F(StateReportTest, ReportsTheTty) {
    const PtyPort port(PtyPort::Start::Raw);
    const std::string report = StateReport(0, master, &port, nullptr);
    EXPECT_NE(report.find(R"("plugged":true,"tty":")" + port.NodePath() +
                          R"(","raw":true,"stalled":false)"),
              std::string::npos)
        << report;
}

TEST_F(StateReportTest, ReportsTheFaultsOfUsb) {
    EXPECT_TRUE(Has(R"("usb":null)"));
    UsbFaults usb;
    usb.haltedOut = true;
    usb.counts = {.haltedTransfers = 1,
                  .clearedHalts = 2,
                  .cutTransfers = 3,
                  .failedTransfers = 4,
                  .refusedControls = 5,
                  .ignoredControls = 6,
                  .lateControls = 7};
    const std::string report = StateReport(0, master, nullptr, &usb);
    EXPECT_NE(report.find(R"("usb":{"haltedIn":false,"haltedOut":true,"haltedTransfers":1,)"
                          R"("clearedHalts":2,"cutTransfers":3,"failedTransfers":4,)"
                          R"("refusedControls":5,"ignoredControls":6,"lateControls":7})"),
              std::string::npos)
        << report;
}

TEST_F(MzdReportTest, ReportsTheLeds) {
    master.Gripper(now).WriteParameter({0x81, 1}, {7});
    master.Gripper(now).WriteParameter({0x81, 2}, {8});
    master.Gripper(now).WriteParameter({0x81, 3}, {9});
    EXPECT_TRUE(Has(R"("leds":{"preset":0,"leds":[[0,0,0],[7,8,9],[0,0,0],[0,0,0],[0,0,0],)"
                    R"([0,0,0],[0,0,0],[0,0,0]]})"));
}

}  // namespace
}  // namespace simulator
