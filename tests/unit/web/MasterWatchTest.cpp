#include "web/MasterWatch.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <atomic>
#include <thread>

#include "tests/support/WaitFor.h"
#include "tests/unit/web/FakeDaemon.h"

namespace tavrik {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;
using std::chrono::seconds;

const std::string kWatched = "HVA SN:1";
const ProcessData kStill(0x0803e8);
constexpr milliseconds kPollPeriod(1000);

class MasterWatchTest : public testing::Test {
protected:
    MasterWatchTest() {
        daemon.On("GetOverrideGrip", [this](const auto& parameters) {
            (parameters.getString(0) == kWatched ? questions : otherQuestions) += 1;
            std::this_thread::sleep_for(isSilent ? seconds(1) : seconds(0));  // as the daemon does
            return xmlrpc_c::value_int(100);
        });
    }

    bool IsOld(const std::string& device = kWatched) {
        return watch.Check(device, kStill, Clock::now(), kPollPeriod).has_value();
    }

    std::atomic<bool> isSilent = false;
    std::atomic<int> questions = 0;  // for kWatched
    std::atomic<int> otherQuestions = 0;
    FakeDaemon daemon;
    MasterWatch watch{daemon.Server()};
};

long Sleeps() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_nvcsw;
}

TEST_F(MasterWatchTest, AMasterThatAnswersIsAskedAgainAndItsDataIsNotOld) {
    EXPECT_TRUE(support::WaitFor([&] {
        EXPECT_FALSE(IsOld());
        return questions > 1;
    }));
}

TEST_F(MasterWatchTest, ASilentMasterMakesDataOldUntilItAnswers) {
    isSilent = true;
    const auto start = Clock::now();
    EXPECT_TRUE(support::WaitFor([&] { return IsOld(); }));
    EXPECT_GE(watch.Check(kWatched, kStill, Clock::now(), kPollPeriod), start);
    isSilent = false;
    EXPECT_TRUE(support::WaitFor([&] { return !IsOld(); }));
}

TEST_F(MasterWatchTest, AGripperThatMovesIsNotAsked) {
    int position = 0;
    EXPECT_TRUE(support::WaitFor([&] {
        watch.Check("moves", ProcessData(0x080000 + ++position), Clock::now(), kPollPeriod);
        IsOld();
        return questions > 2;
    }));
    EXPECT_EQ(otherQuestions, 0);
}

TEST_F(MasterWatchTest, AGripperThatIsNotReadAnyMoreIsNotAsked) {
    EXPECT_TRUE(support::WaitFor([&] { return IsOld() || questions > 0; }));
    const auto then = Clock::now() - seconds(10);
    watch.Check(kWatched, kStill, then, kPollPeriod);  // forgotten at the next look
    EXPECT_FALSE(support::WaitFor([&] { return questions > 1; }, milliseconds(1500)));
}

TEST_F(MasterWatchTest, ReadingsDoNotWakeItsThread) {
    constexpr int kReadings = 20000;
    constexpr long kFew = 200;  // the thread looks four times a second; valgrind adds about 40
    IsOld();
    const long before = Sleeps();
    for (int i = 0; i < kReadings; ++i) {
        watch.Check("HVA SN:" + std::to_string(i % 32), ProcessData(0x080000 + i), Clock::now(),
                    kPollPeriod);
    }
    EXPECT_LT(Sleeps() - before, kFew);
}

}  // namespace
}  // namespace tavrik
