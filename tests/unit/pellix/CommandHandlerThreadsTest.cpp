#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <future>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "pellix/CommandHandler.h"
#include "pellix/DeviceHandler.h"
#include "pellix/Protocol.h"
#include "tests/support/FakeConnection.h"
#include "tests/support/LogCapture.h"

using pellix::Command;
using pellix::CommandHandler;
using support::FakeConnection;
using support::LogCapture;

namespace {

constexpr double kShortTimeout = 0.02;  // seconds

/// Answers every request at once: a query with its value, an assignment of "good" with success,
/// any other assignment with error 4.
class PromptMaster : public pellix::Connection {
public:
    /// @param between lines sent between a data line and its FIN
    explicit PromptMaster(const std::string& between) : linesBetween(between) {}

    int Write(const std::string& text) override {
        const std::string name = text.substr(0, text.find_first_of("?="));
        std::string reply = "ACK " + name + "\n";
        if (text.ends_with("?\n")) {
            reply += name + "=1\n" + linesBetween + "FIN " + name + "\n";
        } else if (text.ends_with("=good\n")) {
            reply += "FIN " + name + "\n";
        } else {
            reply += "ERR " + name + " 4\n";
        }
        const std::lock_guard<std::mutex> lock(mutex);
        replies += reply;
        written.notify_one();
        return 0;
    }

    std::string Read() override {
        std::unique_lock<std::mutex> lock(mutex);
        written.wait_for(lock, std::chrono::milliseconds(10), [this] { return !replies.empty(); });
        return std::exchange(replies, {});
    }

    void Reopen() override {}

private:
    const std::string linesBetween;
    std::mutex mutex;
    std::condition_variable written;
    std::string replies;
};

}  // namespace

/// A handler whose parser thread reads the replies of a PromptMaster.
class PromptMasterTest : public testing::TestWithParam<std::string> {
protected:
    ~PromptMasterTest() override {
        running = false;
        parser.join();
    }

    /// @return the status with which the command ended
    int Complete(Command* command) {
        const int state = handler.WaitForFinished(command);
        const int status = state == pellix::kFinished ? 0 : command->GetStatus();
        handler.RemovePending(command);
        return status;
    }

    LogCapture log;
    pellix::DeviceHandler deviceHandler;
    CommandHandler handler{new PromptMaster(GetParam()), &deviceHandler, 1.0};
    std::atomic<bool> running = true;
    std::thread parser{[this] {
        while (running) {
            handler.Parse();
            handler.CheckTimeouts();
            log.Clear();
        }
    }};
};

TEST_P(PromptMasterTest, RepliesToAQueryDoNotFinishTheAssignmentAfterIt) {
    for (int i = 0; i < 3000; ++i) {
        EXPECT_EQ(Complete(handler.SendQuery("PARAM[97][1]")), 0);
        ASSERT_EQ(Complete(handler.SendAssignment("PARAM[97][1]", "bad")), 4);
    }
}

INSTANTIATE_TEST_SUITE_P(LinesBetween, PromptMasterTest,
                         testing::Values("", "@PDIN=[1,2,3,4]\n", "@EV=1\n@PDIN=[1,2,3,4]\n"));

/// Tests of senders and parser on several threads, and of the wait for a removal.
class CommandHandlerThreadsTest : public testing::Test {
protected:
    pellix::DeviceHandler deviceHandler;
    FakeConnection* connection = new FakeConnection;  // owned by the handler
    CommandHandler handler{connection, &deviceHandler, kShortTimeout};
    LogCapture log;
};

TEST(CommandHandlerTimeoutTest, AcknowledgedCommandThatNeverFinishesFailsAfterOneSecond) {
    const LogCapture log;
    pellix::DeviceHandler deviceHandler;
    CommandHandler handler(new FakeConnection, &deviceHandler, 1.0);
    Command* const command = handler.SendQuery("ID");
    handler.OnAcknowledged("ID");
    std::atomic<bool> waiting = true;
    std::thread monitor([&] {
        while (waiting) {
            handler.CheckTimeouts();
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
    });
    EXPECT_EQ(handler.WaitForFinished(command), pellix::kFailed);
    const auto age = command->GetAge();
    waiting = false;
    monitor.join();
    EXPECT_EQ(command->GetStatus(), pellix::kResultTimeout);
    EXPECT_GT(age, std::chrono::seconds(1));
    EXPECT_LT(age, std::chrono::seconds(5));
    handler.RemovePending(command);
}

// A data line and the FIN line after it may arrive while the sender removes the command: a reply
// must not access a command that is being deleted.
TEST_F(CommandHandlerThreadsTest, RepliesDoNotAccessACommandThatIsBeingRemoved) {
    std::atomic<bool> running = true;
    const auto reply = [&] {
        while (running) {
            handler.OnAcknowledged("ID");
            handler.OnFinished("ID");
            handler.OnError("ID", "1");
            handler.CheckTimeouts();
            log.Clear();
        }
    };
    std::thread first(reply);
    std::thread second(reply);
    for (int i = 0; i < 2000; ++i) {
        Command* const command = handler.SendQuery("ID");
        ASSERT_NE(command, nullptr);
        handler.WaitForFinished(command);
        handler.RemovePending(command);
    }
    running = false;
    first.join();
    second.join();
    EXPECT_EQ(handler.FindActive("ID"), nullptr);
}

TEST_F(CommandHandlerThreadsTest, TwoEqualRepliesInOneReadFinishBothCommands) {
    auto* const line = new FakeConnection;  // owned by the handler
    CommandHandler patient(line, &deviceHandler, kShortTimeout, std::chrono::seconds(20));
    for (int i = 0; i < 100; ++i) {
        Command* const older = patient.SendQuery("ID");
        Command* const younger = patient.SendQuery("ID");
        auto sender = std::async(std::launch::async, [&] {
            patient.WaitForFinished(older);
            patient.RemovePending(older);
        });
        // Alternates between status lines and data lines.
        line->input.emplace_back(i % 2 == 0 ? "FIN ID\nFIN ID\n" : "ID=1\nID=1\n");
        patient.Parse();
        EXPECT_EQ(younger->GetState(), pellix::kFinished) << i;
        sender.get();
        patient.RemovePending(younger);
    }
}

TEST_F(CommandHandlerThreadsTest, DoesNotWaitForAQueryBeforeAnAssignment) {
    auto* const line = new FakeConnection;  // owned by the handler
    CommandHandler patient(line, &deviceHandler, kShortTimeout, std::chrono::seconds(20));
    Command* const reading = patient.SendQuery("PARAM[97][1]");
    Command* const setting = patient.SendAssignment("PARAM[97][1]", "[1]");
    line->input.emplace_back("PARAM[97][1]=[2]\n");
    const auto start = std::chrono::steady_clock::now();
    patient.Parse();
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
    EXPECT_EQ(reading->GetState(), pellix::kFinished);
    EXPECT_EQ(setting->GetState(), pellix::kActive);
    patient.RemovePending(reading);
    patient.RemovePending(setting);
}

TEST_F(CommandHandlerThreadsTest, WaitForTheSenderToRemoveItsCommandIsShort) {
    Command* const older = handler.SendQuery("ID");
    Command* const younger = handler.SendQuery("ID");
    connection->input.emplace_back("FIN ID\nFIN ID\n");
    handler.Parse();
    EXPECT_EQ(older->GetState(), pellix::kFinished);
    EXPECT_EQ(younger->GetState(), pellix::kActive);
    handler.RemovePending(older);
    handler.RemovePending(younger);
}

TEST_F(CommandHandlerThreadsTest, DoesNotWaitWithoutAYoungerCommandOfTheName) {
    Command* const command = handler.SendQuery("ID");
    Command* const other = handler.SendQuery("MODE");
    handler.OnFinished("ID");
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < 1000; ++i) {
        handler.AwaitRemoval("ID");
    }
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
    handler.RemovePending(command);
    handler.RemovePending(other);
}

TEST_F(CommandHandlerThreadsTest, ManyThreadsSendAtOnce) {
    std::vector<std::thread> threads;
    std::atomic<int> finished = 0;
    for (const std::string name : {"A", "B", "C", "D"}) {
        threads.emplace_back([&, name] {
            for (int k = 0; k < 100; ++k) {
                Command* const command = handler.SendQuery(name);
                handler.OnFinished(name);
                finished += handler.WaitForFinished(command) == pellix::kFinished ? 1 : 0;
                handler.RemovePending(command);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(finished, 400);
    EXPECT_EQ(connection->Writes().size(), 400U);
}
