#include "web/PageSettings.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <nlohmann/json.hpp>

#include "client/Failure.h"
#include "client/SettingTable.h"
#include "tests/unit/web/FakeDaemon.h"

namespace tavrik {
namespace {

using nlohmann::ordered_json;

const std::string kOwner = "HVA SN:1";
constexpr int kRestingExcerpt = 0x08e803;
constexpr int kMovedExcerpt = 0x08e807;

/// A daemon with one gripper whose settings are 1, but for the force of the sets.
class PageSettingsTest : public testing::Test {
protected:
    PageSettingsTest() {
        for (const Setting& setting : Settings()) {
            fake.On(std::string(setting.getter), [&setting](const auto&) -> xmlrpc_c::value {
                switch (setting.kind) {
                    case Setting::Kind::Flag:
                        return xmlrpc_c::value_boolean(true);
                    case Setting::Kind::Limit:
                        return xmlrpc_c::value_double(0.01);
                    case Setting::Kind::Checksum:
                        return xmlrpc_c::value_i8(1);
                    default:
                        return xmlrpc_c::value_int(setting.place == Setting::Place::Led ? 0 : 1);
                }
            });
        }
        fake.On("GetForce", [this](const xmlrpc_c::paramList& parameters) {
            return xmlrpc_c::value_int(forces.at(static_cast<std::size_t>(parameters.getInt(1))));
        });
        fake.On("SetForce", [this](const xmlrpc_c::paramList& parameters) {
            return SetForce(parameters.getInt(1), parameters.getInt(2));
        });
        fake.On("GetPDINExcerpt", [this](const auto&) { return xmlrpc_c::value_int(excerpt); });
        fake.On("GetGripperInterface", [](const auto&) { return xmlrpc_c::value_int(1); });
        forces.fill(1);
    }

    xmlrpc_c::value SetForce(int set, int force) {
        if (force == kRefused) {
            return xmlrpc_c::value_int(kRefusal);
        }
        forces.at(static_cast<std::size_t>(set)) = force;
        excerpt = movesAfterWrite ? kMovedExcerpt : kRestingExcerpt;
        return xmlrpc_c::value_int(0);
    }

    GripperSettings Read() {
        const std::string file = ReadPageSettings(gripper, Progress())["file"];
        return ParseSettingsFile(file, "hva.json");
    }

    static void SetForceOf(GripperSettings& settings, int set, int force) {
        settings.values.at({&FindSetting("force"), set}) = force;
    }

    PageProgress Progress() {
        return [this](std::string_view step, double part) {
            if (steps.empty() || steps.back() != step) {
                steps.emplace_back(step);
            }
            EXPECT_GT(part, 0);
            EXPECT_LE(part, 1);
        };
    }

    ordered_json Restore(
        const GripperSettings& wanted, const std::function<void()>& check = [] {}) {
        steps.clear();
        return RestorePageSettings(
            gripper, wanted, "hva.json", check,
            [this](const std::string& line) { log.push_back(line); }, Progress());
    }

    static constexpr int kRefused = 99;  // a force
    static constexpr int kRefusal = 44;  // a status

    std::array<int, kSetCount> forces{};
    std::atomic<int> excerpt = kRestingExcerpt;
    std::atomic<bool> movesAfterWrite = false;
    FakeDaemon fake;
    Daemon daemon{fake.Server()};
    Gripper gripper{daemon, kOwner};
    std::vector<std::string> steps;
    std::vector<std::string> log;
};

TEST_F(PageSettingsTest, TablesHaveARowForEachSet) {
    const ordered_json settings = ReadPageSettings(gripper, Progress())["settings"];
    EXPECT_EQ(settings["sets"]["rows"].size(), 32U);
    EXPECT_EQ(settings["sets"]["rows"][0], (ordered_json{"1", "0.01", "0.01"}));
    EXPECT_TRUE(settings["leds"]["rows"].empty());
    EXPECT_EQ(steps, std::vector<std::string>{"reading"});
}

TEST_F(PageSettingsTest, ARestoreTellsItsStepsAndLogsWhatItWrites) {
    GripperSettings wanted = Read();
    SetForceOf(wanted, 3, 61);
    EXPECT_TRUE(Restore(wanted)["differences"].empty());
    EXPECT_EQ(forces[3], 61);
    EXPECT_EQ(steps, (std::vector<std::string>{"reading", "writing", "reading back"}));
    EXPECT_EQ(log, std::vector<std::string>{"force of set 3 = 61: written"});
}

TEST_F(PageSettingsTest, AWriteIsLoggedBeforeTheNextOneBegins) {
    GripperSettings wanted = Read();
    SetForceOf(wanted, 2, 60);
    SetForceOf(wanted, 3, 61);
    std::vector<std::size_t> logged;
    Restore(wanted, [&] { logged.push_back(log.size()); });
    EXPECT_EQ(logged, (std::vector<std::size_t>{0, 1}));
    EXPECT_EQ(log.size(), 2U);
}

TEST_F(PageSettingsTest, ARefusedValueIsReportedWithItsStatus) {
    GripperSettings wanted = Read();
    SetForceOf(wanted, 2, kRefused);
    SetForceOf(wanted, 3, 61);
    const ordered_json difference{
        {"name", "force of set 2"}, {"from", "1"}, {"to", "99"}, {"result", "refused: status 44"}};
    EXPECT_EQ(Restore(wanted)["differences"], ordered_json::array({difference}));
    EXPECT_EQ(forces[3], 61);
}

TEST_F(PageSettingsTest, ARestoreThatEndsTellsHowMuchWasWritten) {
    GripperSettings wanted = Read();
    SetForceOf(wanted, 2, 60);
    SetForceOf(wanted, 3, 61);
    movesAfterWrite = true;
    try {
        Restore(wanted);
        FAIL() << "the gripper moves";
    } catch (const Failure& failure) {
        EXPECT_EQ(std::string(failure.what()),
                  "HVA SN:1: is moving, now at 20.24 in state 8: stop the program that uses it, "
                  "then try again; 1 of 2 settings were written");
    }
    EXPECT_EQ(log, (std::vector<std::string>{"force of set 2 = 60: written",
                                             "force of set 3 = 61: not written"}));
}

TEST_F(PageSettingsTest, ARestoreEndsWithControl) {
    GripperSettings wanted = Read();
    SetForceOf(wanted, 2, 60);
    EXPECT_THROW(Restore(wanted, [] { throw Failure(ExitStatus::NotSent, "no control"); }),
                 Failure);
    EXPECT_EQ(forces[2], 1);
}

}  // namespace
}  // namespace tavrik
