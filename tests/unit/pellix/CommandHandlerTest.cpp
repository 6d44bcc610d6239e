#include "pellix/CommandHandler.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <future>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "pellix/DeviceHandler.h"
#include "pellix/Protocol.h"
#include "tests/support/Allocations.h"
#include "tests/support/FailingLock.h"
#include "tests/support/FakeConnection.h"
#include "tests/support/LogCapture.h"
#include "tests/support/WaitFor.h"

using pellix::Command;
using pellix::CommandHandler;
using support::FakeConnection;
using support::LogCapture;
using support::Messages;
using Lines = std::vector<std::string>;

namespace {

constexpr double kTimeout = 0.02;  // seconds

}  // namespace

class CommandHandlerTest : public testing::Test {
protected:
    /// Waits until `command` has timed out.
    void Expire(const Command* command) {
        EXPECT_TRUE(support::WaitFor([&] {
            handler.CheckTimeouts();
            return command->GetState() == pellix::kFailed;
        }));
    }

    bool connectionDestroyed = false;
    pellix::DeviceHandler deviceHandler;
    FakeConnection* connection = new FakeConnection(&connectionDestroyed);  // owned by the handler
    CommandHandler handler{connection, &deviceHandler, kTimeout};
    LogCapture log;
};

TEST_F(CommandHandlerTest, QueryIsSentAndActive) {
    Command* const command = handler.SendQuery("ID");
    ASSERT_NE(command, nullptr);
    EXPECT_EQ(connection->Writes(), Lines{"ID?\n"});
    EXPECT_EQ(command->GetState(), pellix::kActive);
    EXPECT_EQ(log.All(), Messages{"New command ID. Active commands: 1"});
    handler.RemovePending(command);
}

TEST_F(CommandHandlerTest, AssignmentIsSentWithItsValue) {
    handler.RemovePending(handler.SendAssignment("PDOUT", "v"));
    EXPECT_EQ(connection->Writes(), Lines{"PDOUT=v\n"});
}

TEST_F(CommandHandlerTest, CallIsSentWithItsArguments) {
    handler.RemovePending(handler.SendCall("X", {}));
    handler.RemovePending(handler.SendCall("X", {"a", "b"}));
    EXPECT_EQ(connection->Writes(), (Lines{"X()\n", "X(a,-fb)\n"}));
}

TEST_F(CommandHandlerTest, CommandIsActiveWhileItIsWritten) {
    int state = -1;
    connection->onWrite = [&] { state = handler.FindActive("ID")->GetState(); };
    handler.RemovePending(handler.SendQuery("ID"));
    EXPECT_EQ(state, pellix::kActive);
}

// Also shows that no lock is held while writing to the tty.
TEST_F(CommandHandlerTest, ReplyIsMatchedDuringTheWrite) {
    connection->onWrite = [&] {
        auto reply = std::async(std::launch::async, [&] { handler.OnFinished("ID"); });
        EXPECT_EQ(reply.wait_for(support::kPatience), std::future_status::ready);
    };
    Command* const command = handler.SendQuery("ID");
    ASSERT_NE(command, nullptr);
    EXPECT_EQ(handler.WaitForFinished(command), pellix::kFinished);
    handler.RemovePending(command);
}

TEST_F(CommandHandlerTest, ActiveCommandsAreCountedAfterTheWrite) {
    Command* const first = handler.SendQuery("A");
    Command* const second = handler.SendQuery("B");
    connection->onWrite = [&] { handler.RemovePending(first); };
    Command* const third = handler.SendQuery("C");
    EXPECT_EQ(log.BeginningWith("New command"),
              (Messages{"New command A. Active commands: 1", "New command B. Active commands: 2",
                        "New command C. Active commands: 2"}));
    handler.RemovePending(second);
    handler.RemovePending(third);
}

TEST_F(CommandHandlerTest, FailedWriteRemovesTheCommand) {
    for (const int failure : {-1, 1}) {
        connection->writeResult = failure;
        log.Clear();
        const std::size_t before = support::LiveBytes();
        EXPECT_EQ(handler.SendCall("OPERATE", {}), nullptr);
        EXPECT_EQ(log.All(),
                  (Messages{"Failed to send command OPERATE",
                            "Pending command OPERATE deleted (Status: 0).", "Active commands: 0"}));
        if (failure == 1) {  // in the first round the list and the fake allocate their storage
            EXPECT_LT(support::LiveBytes(), before + 128);
        }
    }
    EXPECT_EQ(handler.FindActive("OPERATE"), nullptr);
}

TEST_F(CommandHandlerTest, NothingIsSentAfterTheDeviceIsRemoved) {
    handler.SetDeviceRemoved();
    const std::size_t before = support::LiveBytes();
    EXPECT_EQ(handler.SendQuery("ID"), nullptr);
    EXPECT_EQ(handler.SendAssignment("PDOUT", "[0,0]"), nullptr);
    EXPECT_EQ(handler.SendCall("OPERATE", {}), nullptr);
    EXPECT_EQ(support::LiveBytes(), before);  // the commands were deleted
    EXPECT_EQ(log.All(), Messages(3, "Device has been removed"));
    EXPECT_TRUE(connection->Writes().empty());
    EXPECT_EQ(handler.FindActive("ID"), nullptr);
}

TEST_F(CommandHandlerTest, CommandThatCannotBeListedIsNotSent) {
    const std::size_t before = support::LiveBytes();
    {
        const support::FailingAllocations failure(
            {.smallest = sizeof(Command*), .largest = sizeof(Command*)});
        EXPECT_EQ(handler.SendQuery("ID"), nullptr);
    }
    EXPECT_EQ(support::LiveBytes(), before);
    EXPECT_EQ(log.All(), Messages{"Failed to add new command ID to queue"});
    EXPECT_TRUE(connection->Writes().empty());
}

TEST_F(CommandHandlerTest, OlderOfTwoEqualNamesFinishesFirst) {
    Command* const older = handler.SendQuery("PDOUT");
    Command* const newer = handler.SendAssignment("PDOUT", "[0,0]");
    handler.OnFinished("PDOUT");
    EXPECT_EQ(older->GetState(), pellix::kFinished);
    EXPECT_EQ(newer->GetState(), pellix::kActive);
    EXPECT_EQ(handler.FindActive("PDOUT"), older);
    handler.RemovePending(older);
    handler.RemovePending(newer);
}

TEST_F(CommandHandlerTest, ReplyGoesToTheOldestEvenIfThatIsDone) {
    Command* const older = handler.SendQuery("ID");
    Command* const newer = handler.SendQuery("ID");
    handler.OnFinished("ID");
    handler.OnError("ID", "3");
    EXPECT_EQ(older->GetState(), pellix::kFailed);
    EXPECT_EQ(newer->GetState(), pellix::kActive);
    handler.RemovePending(older);
    handler.OnFinished("ID");
    EXPECT_EQ(newer->GetState(), pellix::kFinished);
    handler.RemovePending(newer);
}

TEST_F(CommandHandlerTest, NamesAreComparedExactly) {
    Command* const command = handler.SendQuery("PARAM[19][0]");
    for (const char* name : {"PARAM[19][1]", "PARAM", "param[19][0]", "PARAM[19][0] ", ""}) {
        EXPECT_EQ(handler.FindActive(name), nullptr) << name;
    }
    EXPECT_EQ(handler.FindActive("PARAM[19][0]"), command);
    handler.RemovePending(command);
}

TEST_F(CommandHandlerTest, RepliesSetTheirStates) {
    Command* const command = handler.SendQuery("ID");
    handler.OnAcknowledged("ID");
    EXPECT_EQ(command->GetState(), pellix::kAcknowledged);
    handler.OnFinished("ID");
    EXPECT_EQ(command->GetState(), pellix::kFinished);
    EXPECT_EQ(command->GetStatus(), 0);
    handler.OnError("ID", "17");
    EXPECT_EQ(command->GetState(), pellix::kFailed);
    EXPECT_EQ(command->GetStatus(), 17);
    handler.RemovePending(command);
}

TEST_F(CommandHandlerTest, LateRepliesOverwriteATerminalState) {
    Command* const command = handler.SendQuery("ID");
    Expire(command);
    handler.OnFinished("ID");
    EXPECT_EQ(command->GetState(), pellix::kFinished);
    handler.OnAcknowledged("ID");
    EXPECT_EQ(command->GetState(), pellix::kAcknowledged);
    handler.RemovePending(command);
}

TEST_F(CommandHandlerTest, ReplyForAnUnknownCommandIsLoggedAndIgnored) {
    Command* const command = handler.SendQuery("ID");
    log.Clear();
    handler.OnAcknowledged("MODE");
    handler.OnFinished("");
    handler.OnError("id", "3");
    EXPECT_EQ(log.All(), (Messages{"Active command MODE could not be found",
                                   "Active command  could not be found",
                                   "Active command id could not be found"}));
    EXPECT_EQ(command->GetState(), pellix::kActive);
    handler.RemovePending(command);
}

TEST_F(CommandHandlerTest, ErrorNumberIsTheLeadingDecimalNumber) {
    Command* const command = handler.SendQuery("ID");
    const std::vector<std::pair<std::string, int>> numbers = {{"3", 3},
                                                              {"  7", 7},
                                                              {"12abc", 12},
                                                              {"-4", -4},
                                                              {"+5", 5},
                                                              {"007", 7},
                                                              {"2147483647", 2147483647},
                                                              {"0x10", 0}};
    for (const auto& [text, number] : numbers) {
        handler.OnError("ID", text);
        EXPECT_EQ(command->GetStatus(), number) << text;
        EXPECT_EQ(command->GetState(), pellix::kFailed) << text;
    }
    handler.RemovePending(command);
}

TEST_F(CommandHandlerTest, InvalidErrorNumberThrowsAndKeepsTheCommand) {
    Command* const command = handler.SendQuery("ID");
    log.Clear();
    for (const char* text : {"", "abc", " ", "-", "x1"}) {
        try {
            handler.OnError("ID", text);
            ADD_FAILURE() << "nothing was thrown for \"" << text << '"';
        } catch (const std::invalid_argument& failure) {
            EXPECT_STREQ(failure.what(), "stoi");
        }
    }
    try {
        handler.OnError("ID", "2147483648");
        ADD_FAILURE() << "nothing was thrown";
    } catch (const std::out_of_range& failure) {
        EXPECT_STREQ(failure.what(), "stoi");
    }
    EXPECT_THROW(handler.OnError("unknown", "abc"), std::invalid_argument);
    EXPECT_EQ(command->GetState(), pellix::kActive);
    EXPECT_EQ(command->GetStatus(), 0);
    EXPECT_TRUE(log.All().empty());  // nothing was looked up
    handler.RemovePending(command);
}

TEST_F(CommandHandlerTest, WaitReturnsAnExistingTerminalState) {
    Command* const finished = handler.SendQuery("A");
    Command* const failed = handler.SendQuery("B");
    handler.OnFinished("A");
    handler.OnError("B", "1");
    EXPECT_EQ(handler.WaitForFinished(finished), pellix::kFinished);
    EXPECT_EQ(handler.WaitForFinished(failed), pellix::kFailed);
    handler.RemovePending(finished);
    handler.RemovePending(failed);
}

TEST_F(CommandHandlerTest, WaitContinuesAfterTheAcknowledgement) {
    Command* const command = handler.SendQuery("ID");
    auto end = std::async(std::launch::async, [&] { return handler.WaitForFinished(command); });
    handler.OnAcknowledged("ID");
    EXPECT_EQ(end.wait_for(std::chrono::milliseconds(20)), std::future_status::timeout);
    handler.OnFinished("ID");
    ASSERT_EQ(end.wait_for(support::kPatience), std::future_status::ready);
    EXPECT_EQ(end.get(), pellix::kFinished);
    handler.RemovePending(command);
}

TEST_F(CommandHandlerTest, ErrorWhileWaitingFailsTheRequest) {
    Command* const command = handler.SendQuery("ID");
    log.Clear();
    {
        const support::FailingLock failure;
        EXPECT_EQ(handler.WaitForFinished(command), pellix::kFailed);
    }
    EXPECT_EQ(log.All(), Messages{"Exception occured in WaitForFinished"});
    EXPECT_EQ(command->GetState(), pellix::kFailed);
    EXPECT_NE(command->GetStatus(), 0);
    handler.RemovePending(command);
}

TEST_F(CommandHandlerTest, LockErrorWhileSettingAStateIsLogged) {
    Command* const command = handler.SendQuery("ID");
    log.Clear();
    {
        const support::FailingLock failure(1);  // locking the list succeeds
        handler.OnFinished("ID");
    }
    EXPECT_EQ(log.All(), Messages{"Exception occured in SetCommandState"});
    EXPECT_EQ(command->GetState(), pellix::kActive);
    handler.RemovePending(command);
}

TEST_F(CommandHandlerTest, RemovalLogsNameStatusAndRemainingCount) {
    Command* const first = handler.SendQuery("PARAM[40][0]");
    Command* const second = handler.SendQuery("ID");
    handler.OnError("PARAM[40][0]", "33");
    log.Clear();
    handler.RemovePending(first);
    handler.RemovePending(second);
    EXPECT_EQ(log.All(),
              (Messages{"Pending command PARAM[40][0] deleted (Status: 33).", "Active commands: 1",
                        "Pending command ID deleted (Status: 0).", "Active commands: 0"}));
}

TEST_F(CommandHandlerTest, RemovalLogsTheStatusUnsigned) {
    Command* const command = handler.SendQuery("ID");
    handler.OnError("ID", "-1");
    log.Clear();
    handler.RemovePending(command);
    EXPECT_EQ(log.All().at(0), "Pending command ID deleted (Status: 4294967295).");
}

TEST_F(CommandHandlerTest, RemovalDeletesTheCommand) {
    handler.RemovePending(handler.SendQuery("A"));  // the list allocates its storage
    const std::size_t before = support::LiveBytes();
    Command* const command = handler.SendQuery("A");
    EXPECT_GE(support::LiveBytes(), before + sizeof(Command));
    handler.RemovePending(command);
    EXPECT_LT(support::LiveBytes(), before + sizeof(Command));
}

TEST_F(CommandHandlerTest, RemovalKeepsTheOrderOfTheOthers) {
    std::array<Command*, 4> commands{};
    for (Command*& command : commands) {
        command = handler.SendQuery("ID");
    }
    handler.RemovePending(commands[1]);
    for (const std::size_t next : {0U, 2U, 3U}) {
        EXPECT_EQ(handler.FindActive("ID"), commands[next]);
        handler.RemovePending(commands[next]);
    }
}

TEST_F(CommandHandlerTest, UnlistedCommandIsNotDeleted) {
    Command own("ID", pellix::kQuery, {});
    handler.RemovePending(&own);
    EXPECT_EQ(log.All(), Messages{"Couldn't find command ID?\n"});
    EXPECT_EQ(own.GetName(), "ID");
}

TEST_F(CommandHandlerTest, ErrorWhileRemovingIsLogged) {
    Command* const command = handler.SendQuery("ID");
    log.Clear();
    {
        const support::FailingLock failure;
        handler.RemovePending(command);
    }
    EXPECT_EQ(log.All(), Messages{"Failed to remove pending command ID?\n from queue"});
    EXPECT_EQ(handler.FindActive("ID"), command);
    handler.RemovePending(command);
}

TEST_F(CommandHandlerTest, OverdueCommandFailsWithTheTimeoutStatus) {
    Command* const command = handler.SendQuery("ID");
    handler.CheckTimeouts();
    Expire(command);
    EXPECT_EQ(command->GetStatus(), pellix::kResultTimeout);
    EXPECT_GT(command->GetAge(), std::chrono::duration<double>(kTimeout));
    handler.RemovePending(command);
}

TEST_F(CommandHandlerTest, TimeoutMessageCarriesTheLineAndTheAge) {
    Command* const command = handler.SendQuery("PARAM[19][0]");
    log.Clear();
    Expire(command);
    const std::string start = "Active command PARAM[19][0]?\n timed out after ";
    const std::string text = log.All().at(0);
    ASSERT_TRUE(text.starts_with(start)) << text;
    const long age = std::stol(text.substr(start.size()));
    EXPECT_EQ(text, start + std::to_string(age) + " ms.");
    EXPECT_GT(age, 20);
    EXPECT_LE(std::chrono::milliseconds(age), command->GetAge());
    handler.RemovePending(command);
}

TEST_F(CommandHandlerTest, OverdueCommandIsReportedOnce) {
    Command* const command = handler.SendQuery("ID");
    Expire(command);
    log.Clear();
    handler.CheckTimeouts();
    EXPECT_TRUE(log.All().empty());
    handler.RemovePending(command);
}

TEST_F(CommandHandlerTest, DoneCommandsDoNotTimeOut) {
    Command* const finished = handler.SendQuery("A");
    Command* const failed = handler.SendQuery("B");
    handler.OnFinished("A");
    handler.OnError("B", "33");
    Command* const active = handler.SendQuery("C");
    Expire(active);
    EXPECT_EQ(finished->GetState(), pellix::kFinished);
    EXPECT_EQ(finished->GetStatus(), 0);
    EXPECT_EQ(failed->GetStatus(), 33);
    for (Command* const command : {finished, failed, active}) {
        handler.RemovePending(command);
    }
}

TEST_F(CommandHandlerTest, EveryOverdueCommandFails) {
    Command* const first = handler.SendQuery("A");
    Command* const second = handler.SendCall("B", {});
    Expire(second);
    EXPECT_EQ(first->GetState(), pellix::kFailed);
    handler.RemovePending(first);
    handler.RemovePending(second);
}

TEST_F(CommandHandlerTest, YoungerCommandDoesNotTimeOutWithAnOlderOne) {
    Command* const older = handler.SendQuery("A");
    EXPECT_TRUE(support::WaitFor([&] { return older->GetAge() > std::chrono::milliseconds(50); }));
    Command* const younger = handler.SendQuery("B");
    handler.CheckTimeouts();
    const bool wasYoung = younger->GetAge() < std::chrono::duration<double>(kTimeout);
    EXPECT_EQ(older->GetState(), pellix::kFailed);
    if (wasYoung) {  // false if the machine was too busy
        EXPECT_EQ(younger->GetState(), pellix::kActive);
    }
    handler.RemovePending(older);
    handler.RemovePending(younger);
}

TEST_F(CommandHandlerTest, TimeoutCountsWhileTheWriteIsBlocked) {
    connection->onWrite = [&] { Expire(handler.FindActive("ID")); };
    Command* const command = handler.SendQuery("ID");
    ASSERT_NE(command, nullptr);
    EXPECT_EQ(handler.WaitForFinished(command), pellix::kFailed);
    EXPECT_EQ(command->GetStatus(), pellix::kResultTimeout);
    handler.RemovePending(command);
}

TEST_F(CommandHandlerTest, DestructorDeletesTheConnection) {
    bool destroyed = false;
    { const CommandHandler other(new FakeConnection(&destroyed), &deviceHandler, kTimeout); }
    EXPECT_TRUE(destroyed);
    EXPECT_FALSE(connectionDestroyed);
}
