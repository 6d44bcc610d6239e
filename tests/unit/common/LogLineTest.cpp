#include "common/LogLine.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <limits>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/LogCapture.h"

using support::LogCapture;
using support::Messages;

namespace {

/// Redirects standard output of this process for the lifetime of the object.
class Redirection {
public:
    explicit Redirection(int descriptor) : original(::dup(STDOUT_FILENO)) {
        ::dup2(descriptor, STDOUT_FILENO);
    }
    Redirection(const Redirection&) = delete;
    Redirection& operator=(const Redirection&) = delete;
    ~Redirection() {
        ::dup2(original, STDOUT_FILENO);
        ::close(original);
    }

private:
    const int original;
};

std::string ReadAll(int descriptor) {
    std::string text;
    std::array<char, 65536> buffer;
    for (;;) {
        const ssize_t count = ::read(descriptor, buffer.data(), buffer.size());
        if (count <= 0) {
            return text;
        }
        text.append(buffer.data(), static_cast<std::size_t>(count));
    }
}

std::string LocalTimeText(std::time_t time) {
    std::tm local{};
    localtime_r(&time, &local);
    std::array<char, 16> text;
    const std::size_t length = std::strftime(text.data(), text.size(), "%H:%M:%S", &local);
    return {text.data(), length};
}

/// @return the current time of day, `hours` ahead of UTC
std::string TimeOfDayEast(int hours) {
    const std::time_t now = std::chrono::system_clock::to_time_t(std::chrono::system_clock::now() +
                                                                 std::chrono::hours(hours));
    std::tm utc{};
    gmtime_r(&now, &utc);
    std::array<char, 16> text;
    const std::size_t length = std::strftime(text.data(), text.size(), "%H:%M:%S", &utc);
    return {text.data(), length};
}

/// @return whether timestamp() returns the current time
bool TellsThePresent() {
    const std::time_t before = std::time(nullptr);
    const std::string text = TavrikDaemon::timestamp();
    const std::time_t after = std::chrono::system_clock::to_time_t(
        std::chrono::system_clock::now());  // std::time() may lag behind
    for (std::time_t time = before; time <= after; ++time) {
        if (text == LocalTimeText(time)) {
            return true;
        }
    }
    return false;
}

}  // namespace

TEST(LogLineTest, LineIsTimeThreadIdAndMessage) {
    const LogCapture log;
    LogLine() << "TavrikDaemon started";
    const std::string text = log.Text();
    std::string shape = text.substr(0, 8);
    for (char& c : shape) {
        c = c >= '0' && c <= '9' ? '0' : c;
    }
    EXPECT_EQ(shape, "00:00:00") << text;
    EXPECT_EQ(text.substr(8), " " + std::to_string(pthread_self()) + " TavrikDaemon started\n");
}

TEST(LogLineTest, LinesOfOneThreadShowThePassingTime) {
    const LogCapture log;
    std::set<std::string> times;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (times.size() < 3 && std::chrono::steady_clock::now() < deadline) {
        log.Clear();
        const std::string before = TavrikDaemon::timestamp();
        LogLine() << "now";
        const std::string after = TavrikDaemon::timestamp();
        const std::string time = log.Text().substr(0, before.size());
        ASSERT_TRUE(time == before || time == after) << time << " at " << before;
        times.insert(time);
    }
    EXPECT_EQ(times.size(), 3U);
}

TEST(LogLineTest, EachThreadWritesItsOwnId) {
    const LogCapture log;
    std::string id;
    std::thread([&id] {
        id = std::to_string(pthread_self());
        LogLine() << "hello";
    }).join();
    EXPECT_EQ(log.Text().substr(9), id + " hello\n");
    EXPECT_NE(id, std::to_string(pthread_self()));
}

TEST(LogLineTest, TextsAndNumbersAreJoinedWithoutSeparators) {
    const LogCapture log;
    LogLine() << "Parameter " << 40U << " / " << -7 << std::string(" not found");
    EXPECT_EQ(log.All(), Messages{"Parameter 40 / -7 not found"});
}

TEST(LogLineTest, NumbersAreDecimalOverTheirWholeRange) {
    const LogCapture log;
    LogLine() << std::numeric_limits<std::int64_t>::min() << " "
              << std::numeric_limits<std::uint64_t>::max() << " " << std::uint8_t{255} << " " << 0;
    EXPECT_EQ(log.All(), Messages{"-9223372036854775808 18446744073709551615 255 0"});
}

TEST(LogLineTest, EmptyMessageKeepsItsPrefix) {
    const LogCapture log;
    { const LogLine line; }
    EXPECT_EQ(log.All(), Messages{""});
}

TEST(LogLineTest, TimestampIsTheLocalTimeOfDay) {
    const char* const given = std::getenv("TZ");  // NOLINT(concurrency-mt-unsafe)
    const std::string before = given == nullptr ? "" : given;
    for (const char* zone : {"UTC0", "TEST-5:30", "TEST8"}) {
        ::setenv("TZ", zone, 1);  // NOLINT(concurrency-mt-unsafe)
        ::tzset();
        EXPECT_TRUE(TellsThePresent()) << zone;
    }
    ::setenv("TZ", before.c_str(), 1);  // NOLINT(concurrency-mt-unsafe)
    ::tzset();
}

TEST(LogLineTest, TimestampFollowsAChangeOfTheTimeZone) {
    const char* const given = std::getenv("TZ");  // NOLINT(concurrency-mt-unsafe)
    const std::string before = given == nullptr ? "" : given;
    for (const int hours : {0, 5, -8, 3}) {
        // A zone east of UTC has a later local time but a negative offset in TZ.
        const std::string zone = "TEST" + std::to_string(-hours);
        ::setenv("TZ", zone.c_str(), 1);  // NOLINT(concurrency-mt-unsafe)
        const std::string first = TimeOfDayEast(hours);
        const std::string text = TavrikDaemon::timestamp();
        EXPECT_TRUE(text == first || text == TimeOfDayEast(hours)) << text << " at " << first;
    }
    ::setenv("TZ", before.c_str(), 1);  // NOLINT(concurrency-mt-unsafe)
    ::tzset();
}

TEST(LogLineTest, TimestampIsCorrectWhileOtherThreadsConvertTimes) {
    std::atomic<bool> running = true;
    std::thread other([&running] {
        while (running) {
            const std::time_t noon = 43200;
            (void)std::localtime(&noon);  // NOLINT(concurrency-mt-unsafe): its result is shared
        }
    });
    int wrong = 0;
    for (int i = 0; i < 20000; ++i) {
        wrong += TellsThePresent() ? 0 : 1;
    }
    running = false;
    other.join();
    EXPECT_EQ(wrong, 0);
}

TEST(LogLineTest, ThreadIdIsUnsignedDecimal) {
    EXPECT_EQ(TavrikDaemon::threadIdText(3079482176), "3079482176");
    EXPECT_EQ(TavrikDaemon::threadIdText(std::numeric_limits<pthread_t>::max()),
              "18446744073709551615");
}

TEST(LogLineTest, ThreadIdZeroIsNamed) {
    EXPECT_EQ(TavrikDaemon::threadIdText(0), "thread::id of a non-executing thread");
}

TEST(LogLineTest, OneLineIsOneWrite) {
    std::array<int, 2> ends;
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends.data()), 0);
    {
        const Redirection output(ends[0]);
        LogLine() << "first " << 1;
        LogLine() << "second " << 2;
    }
    std::array<char, 256> packet;
    const ssize_t first = ::recv(ends[1], packet.data(), packet.size(), MSG_DONTWAIT);
    ASSERT_GT(first, 0);
    EXPECT_TRUE(
        std::string(packet.data(), static_cast<std::size_t>(first)).ends_with(" first 1\n"));
    const ssize_t second = ::recv(ends[1], packet.data(), packet.size(), MSG_DONTWAIT);
    ASSERT_GT(second, 0);
    EXPECT_TRUE(
        std::string(packet.data(), static_cast<std::size_t>(second)).ends_with(" second 2\n"));
    ::close(ends[0]);
    ::close(ends[1]);
}

TEST(LogLineTest, LinesOfManyThreadsDoNotMix) {
    constexpr unsigned kThreads = 4;
    constexpr unsigned kLines = 300;
    const LogCapture log;
    std::vector<std::thread> threads;
    for (unsigned number = 0; number < kThreads; ++number) {
        threads.emplace_back([number] {
            for (unsigned i = 0; i < kLines; ++i) {
                LogLine() << "thread " << number << " line " << i << " " << std::string(i, '.');
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    const Messages messages = log.All();
    ASSERT_EQ(messages.size(), kThreads * kLines);
    std::array<unsigned, kThreads> next{};
    for (const std::string& message : messages) {
        const auto number = static_cast<unsigned>(message.at(7) - '0');
        ASSERT_LT(number, kThreads);
        const unsigned line = next[number]++;
        EXPECT_EQ(message, "thread " + std::to_string(number) + " line " + std::to_string(line) +
                               " " + std::string(line, '.'));
    }
}

TEST(LogLineTest, LineLongerThanAPipeArrivesWholeDespiteSignals) {
    const std::string message(1'000'000, 'x');
    std::array<int, 2> ends;
    ASSERT_EQ(::pipe(ends.data()), 0);
    struct sigaction interrupt {};
    interrupt.sa_handler = [](int) {};  // without SA_RESTART: writes end early
    ASSERT_EQ(::sigaction(SIGUSR1, &interrupt, nullptr), 0);

    std::atomic<bool> written = false;
    std::thread writer([&] {
        const Redirection output(ends[1]);
        LogLine() << message;
        written = true;
        ::close(ends[1]);
    });
    const std::string writerId = std::to_string(writer.native_handle());
    std::thread disturber([&] {
        while (!written) {
            ::pthread_kill(writer.native_handle(), SIGUSR1);
            std::this_thread::sleep_for(std::chrono::microseconds(100));
        }
    });
    const std::string text = ReadAll(ends[0]);
    disturber.join();
    writer.join();
    ::close(ends[0]);
    EXPECT_EQ(text.substr(text.size() - message.size() - 1), message + "\n");
    EXPECT_EQ(text.size(), 9 + writerId.size() + 1 + message.size() + 1);
}

TEST(LogLineTest, OutputErrorsAreIgnored) {
    const int full = ::open("/dev/full", O_WRONLY | O_CLOEXEC);
    ASSERT_NE(full, -1);
    {
        const Redirection output(full);
        EXPECT_EQ(::write(STDOUT_FILENO, "x", 1), -1);
        LogLine() << "nobody reads this";
    }
    ::close(full);
}
