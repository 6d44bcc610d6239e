#include "simulator/RecordingMaster.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "simulator/Recording.h"
#include "simulator/SimulatedMaster.h"

namespace simulator {
namespace {

using std::chrono::milliseconds;

MasterSettings WithoutStream() {
    MasterSettings settings;
    settings.streamRate = 0;
    return settings;
}

class RecordingMasterTest : public testing::Test {
protected:
    ~RecordingMasterTest() override { std::filesystem::remove_all(folder); }

    /// The recorded events, each as "word bytes".
    std::vector<std::string> Recorded() const {
        std::vector<std::string> texts;
        const Recording recording = ReadRecording(path);
        for (const RecordedEvent& event : recording.masters.at(3)) {
            texts.push_back(std::string(RecordedWord(event.kind)) + " " + event.bytes);
        }
        return texts;
    }

    std::string folder{mkdtemp(std::string("/tmp/recording.XXXXXX").data())};
    std::string path = folder + "/cell.rec";
    RecordingWriter writer{path, [](const std::string& text) { FAIL() << text; }};
    TimePoint now{std::chrono::hours(1)};
    RecordingMaster master{
        std::make_unique<SimulatedMaster>(WithoutStream(), *FindGripperModel("HVA"), Bytes{'H'},
                                          Bytes{'1'}, now),
        3, writer};
};

TEST_F(RecordingMasterTest, RecordsWhatTheMasterHearsAndSays) {
    master.PowerUp(now);
    master.Receive("ID", now);
    master.Receive("", now);
    EXPECT_EQ(master.NextText(now), "");
    master.Receive("?\n", now);
    const std::string answer = "ACK ID\nID=PELLIX\nFIN ID\n";
    EXPECT_EQ(master.NextText(now), answer);
    EXPECT_EQ(Recorded(), (std::vector<std::string>{"plug ", "> ID", "> ?\n", "< " + answer}));
}

TEST_F(RecordingMasterTest, RecordsEveryWayToGo) {
    master.PowerUp(now);
    master.HangUp(false, now);
    master.HangUp(true, now);
    master.PowerUp(now);
    master.HangUp(true, now);
    EXPECT_EQ(Recorded(),
              (std::vector<std::string>{"plug ", "hangup ", "unplug ", "plug ", "unplug "}));
}

TEST_F(RecordingMasterTest, WakesUpWithTheMaster) {
    master.PowerUp(now);
    EXPECT_EQ(master.NextDue(), std::nullopt);
    master.Receive("RESTART()\n", now);
    EXPECT_EQ(master.NextDue(), now);
}

}  // namespace
}  // namespace simulator
