#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "pellix/SerialConnection.h"
#include "tests/support/LogCapture.h"
#include "tests/support/Pty.h"
#include "tests/support/WaitFor.h"

using pellix::SerialConnection;
using std::chrono::milliseconds;
using std::chrono::seconds;
using support::LogCapture;
using support::Measure;
using support::Messages;
using support::Pty;

namespace {

/// @return whether the thread `id` of this process sleeps in the kernel
bool IsThreadAsleep(pid_t id) {
    std::ifstream file("/proc/self/task/" + std::to_string(id) + "/stat");
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    const std::size_t state = text.rfind(')') + 2;
    return state < text.size() && text[state] == 'S';
}

/// Installs a signal handler that interrupts blocking system calls.
void TakeSignals() {
    struct sigaction take {};
    take.sa_handler = [](int) {};  // without SA_RESTART
    ASSERT_EQ(::sigaction(SIGUSR1, &take, nullptr), 0);
}

/// A thread that writes one text and blocks in it.
class Writer {
public:
    Writer(SerialConnection& connection, const std::string& text)
        : thread([this, &connection, text] {
              id = ::gettid();
              result = connection.Write(text);
              done = true;
          }) {
        EXPECT_TRUE(support::WaitFor([this] { return IsAsleep(); }));
    }
    Writer(const Writer&) = delete;
    Writer& operator=(const Writer&) = delete;
    ~Writer() { Join(); }

    void Join() {
        if (thread.joinable()) {
            thread.join();
        }
    }

    /// Sends a signal to the thread, for which a handler is installed.
    void Interrupt() { ::pthread_kill(thread.native_handle(), SIGUSR1); }

    bool IsAsleep() const { return id != 0 && IsThreadAsleep(id); }
    bool IsDone() const { return done; }

    int result = 1;  ///< valid after Join()

private:
    std::atomic<pid_t> id = 0;
    std::atomic<bool> done = false;
    std::thread thread;
};

}  // namespace

/// Tests of Write(), alone and at the same time as other functions.
class SerialConnectionWriteTest : public testing::Test {
protected:
    LogCapture log;
    Pty pty;
};

TEST_F(SerialConnectionWriteTest, WriteSendsTheTextUnchanged) {
    const Pty cooked(Pty::Settings::kCooked);
    SerialConnection connection(cooked.Path());
    log.Clear();
    EXPECT_EQ(connection.Write("PDOUT=[3,3]\n"), 0);
    EXPECT_EQ(connection.Write("\r\n"), 0);
    EXPECT_EQ(cooked.Receive(14), "PDOUT=[3,3]\n\r\n");
    EXPECT_TRUE(log.All().empty());
}

TEST_F(SerialConnectionWriteTest, ShortWriteIsAFailureWithItsCount) {
    TakeSignals();
    SerialConnection connection(pty.Path());
    log.Clear();
    Writer writer(connection, std::string(1'000'000, 'x'));
    EXPECT_TRUE(support::WaitFor([&] {
        writer.Interrupt();
        return writer.IsDone();
    }));
    writer.Join();
    EXPECT_EQ(writer.result, -1);
    const std::string start = "Failed to write to serial connection: ";
    const std::string message = log.All().at(0);
    ASSERT_EQ(message.substr(0, start.size()), start);
    EXPECT_GT(std::stol(message.substr(start.size())), 0);
    EXPECT_LT(std::stol(message.substr(start.size())), 1'000'000);
}

TEST_F(SerialConnectionWriteTest, WriteWaitsForTheTtyToAcceptBytes) {
    SerialConnection connection(pty.Path());
    pty.Stall(true);
    log.Clear();
    {
        Writer writer(connection, "ID?\n");
        pty.Stall(false);
        writer.Join();
        EXPECT_EQ(writer.result, 0);
    }
    EXPECT_EQ(pty.Receive(4), "ID?\n");
    EXPECT_TRUE(log.All().empty());
}

TEST_F(SerialConnectionWriteTest, WriteToATtyThatAcceptsNoBytesFailsAfterThreeSeconds) {
    SerialConnection connection(pty.Path());
    pty.Stall(true);
    log.Clear();
    const auto waited = Measure([&] { EXPECT_EQ(connection.Write("ID?\n"), -1); });
    EXPECT_GE(waited, seconds(3));
    EXPECT_LT(waited, seconds(8));
    EXPECT_EQ(log.All(), Messages{"Failed to write to serial connection: -1"});
    pty.Stall(false);
    EXPECT_EQ(connection.Write("MODE?\n"), 0);
    EXPECT_EQ(pty.Receive(6), "MODE?\n");  // nothing of the first was sent
}

TEST_F(SerialConnectionWriteTest, SignalsDoNotShortenTheWaitForATtyThatAcceptsNoBytes) {
    TakeSignals();
    SerialConnection connection(pty.Path());
    pty.Stall(true);
    Writer writer(connection, "ID?\n");
    for (int i = 0; i < 20; ++i) {
        writer.Interrupt();
        ASSERT_TRUE(support::WaitFor([&] { return writer.IsAsleep(); }));
    }
    pty.Stall(false);
    writer.Join();
    EXPECT_EQ(writer.result, 0);
}

TEST_F(SerialConnectionWriteTest, WriteBehindABlockedOneTimesOutAfterASecond) {
    SerialConnection connection(pty.Path());
    pty.Stall(true);
    log.Clear();
    Writer writer(connection, "first\n");
    const auto waited = Measure([&] { EXPECT_EQ(connection.Write("second\n"), -1); });
    EXPECT_GE(waited, seconds(1));
    EXPECT_EQ(log.All(), Messages{"Timeout writing to serial connection"});
    pty.Stall(false);
    writer.Join();
    EXPECT_EQ(writer.result, 0);
    EXPECT_EQ(pty.Receive(6), "first\n");
    EXPECT_EQ(connection.Write("third\n"), 0);
    EXPECT_EQ(pty.Receive(6), "third\n");
}

TEST_F(SerialConnectionWriteTest, ReopenBehindABlockedWriteTimesOutAfterASecond) {
    SerialConnection connection(pty.Path());
    pty.Stall(true);
    log.Clear();
    Writer writer(connection, "first\n");
    const auto waited = Measure([&] { connection.Reopen(); });
    EXPECT_GE(waited, seconds(1));
    EXPECT_EQ(log.All(),
              (Messages{"SerialConnection: Reopening", "SerialConnection: Timeout reopening"}));
    pty.Stall(false);
    writer.Join();
    EXPECT_EQ(writer.result, 0);
    EXPECT_EQ(pty.Receive(6), "first\n");
}

TEST_F(SerialConnectionWriteTest, ReadContinuesWhileAWriteIsBlocked) {
    SerialConnection connection(pty.Path());
    pty.Stall(true);
    const Writer writer(connection, "first\n");
    pty.Send("@EV=1\n");
    std::string text;
    EXPECT_LT(Measure([&] { text = connection.Read(); }), milliseconds(900));
    EXPECT_EQ(text, "@EV=1\n");
    pty.Stall(false);
}

TEST_F(SerialConnectionWriteTest, WritesOfManyThreadsDoNotMix) {
    SerialConnection connection(pty.Path());
    std::vector<std::thread> threads;
    for (const char letter : {'a', 'b', 'c'}) {
        threads.emplace_back([&connection, line = std::string(20, letter) + "\n"] {
            for (int i = 0; i < 50; ++i) {
                EXPECT_EQ(connection.Write(line), 0);
            }
        });
    }
    const std::string text = pty.Receive(std::size_t{3} * 50 * 21);
    for (std::thread& thread : threads) {
        thread.join();
    }
    ASSERT_EQ(text.size(), 3U * 50U * 21U);
    for (std::size_t start = 0; start < text.size(); start += 21) {
        ASSERT_EQ(text.substr(start, 21), std::string(20, text[start]) + "\n");
    }
}
