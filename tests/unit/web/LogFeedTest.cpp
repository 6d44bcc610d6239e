#include "web/LogFeed.h"

#include <gtest/gtest.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <nlohmann/json.hpp>

#include "tests/support/WaitFor.h"
#include "tests/unit/client/TemporaryFile.h"

namespace tavrik {
namespace {

using nlohmann::ordered_json;
using support::WaitFor;

std::string Start(const std::string& name) {
    return "12:00:00 4242 Starting TavrikDaemon (" + name + ")\n";
}

class LogFeedTest : public testing::Test {
protected:
    /// Asks until the answer has so many rows or more.
    bool HasRows(LogFeed& feed, std::size_t count, std::uint64_t reading = 0,
                 std::uint64_t last = 0) {
        return WaitFor([&, reading, last] {
            answer = feed.Rows(reading, last, "");
            return answer["rows"].size() >= count;
        });
    }

    TemporaryFile file;
    ordered_json answer;
};

TEST_F(LogFeedTest, ShowsTheRowsOfAFile) {
    file.Write(Start("one") + Start("two"));
    LogFeed feed(file.path);
    ASSERT_TRUE(HasRows(feed, 2));
    EXPECT_EQ(answer["rows"][1]["text"], "Starting TavrikDaemon (two)");
    EXPECT_EQ(answer["rows"][1]["clock"], "12:00:00");
    EXPECT_EQ(answer["trouble"], "");
    EXPECT_EQ(answer["last"], 2);
}

TEST_F(LogFeedTest, RepeatsNothingThatTheCallerKnows) {
    file.Write(Start("one"));
    LogFeed feed(file.path);
    ASSERT_TRUE(HasRows(feed, 1));
    const std::uint64_t reading = answer["reading"];
    EXPECT_TRUE(feed.Rows(reading, 1, "")["rows"].empty());
    std::ofstream(file.path, std::ios::app) << Start("two");
    ASSERT_TRUE(HasRows(feed, 1, reading, 1));
    EXPECT_EQ(answer["rows"][0]["text"], "Starting TavrikDaemon (two)");
    EXPECT_EQ(feed.Rows(reading + 1, 1, "")["rows"].size(), 2U);  // of another reading
    EXPECT_EQ(feed.Rows(reading, 99, "")["rows"].size(), 2U);
}

TEST_F(LogFeedTest, KeepsTheLastRowsOfALongLog) {
    constexpr int kLines = 600;
    std::string text;
    for (int i = 1; i <= kLines; ++i) {
        text += Start(std::to_string(i));
    }
    file.Write(text);
    LogFeed feed(file.path);
    ASSERT_TRUE(WaitFor([&] { return feed.Rows(0, 0, "")["last"] == kLines; }));
    const auto rows = feed.Rows(0, 0, "")["rows"];
    EXPECT_EQ(rows.size(), 500U);
    EXPECT_EQ(rows.back()["text"], "Starting TavrikDaemon (600)");
}

TEST_F(LogFeedTest, TellsWhyThereAreNoRows) {
    LogFeed feed(file.path);  // does not exist
    ASSERT_TRUE(
        WaitFor([&] { return !feed.Rows(0, 0, "")["trouble"].get<std::string>().empty(); }));
    EXPECT_TRUE(feed.Rows(0, 0, "")["rows"].empty());
}

TEST_F(LogFeedTest, ReadsNothingBeforeTheFirstRequest) {
    file.Write(Start("one"));
    const int watch = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    ASSERT_GE(inotify_add_watch(watch, file.path.c_str(), IN_OPEN), 0);
    const auto isOpened = [watch] {
        std::array<char, 1024> events{};
        return read(watch, events.data(), events.size()) > 0;
    };
    LogFeed feed(file.path);
    EXPECT_FALSE(WaitFor(isOpened, std::chrono::milliseconds(200)));
    feed.Rows(0, 0, "");
    EXPECT_TRUE(WaitFor(isOpened));
    close(watch);
}

}  // namespace
}  // namespace tavrik
