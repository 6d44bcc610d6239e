#include "pellix/Command.h"

#include <gtest/gtest.h>

#include <chrono>
#include <deque>
#include <string>
#include <thread>
#include <vector>

#include "pellix/Protocol.h"
#include "tests/support/FailingLock.h"
#include "tests/support/LogCapture.h"
#include "tests/support/WaitFor.h"

using pellix::Command;
using support::Messages;

TEST(CommandTest, CallWithoutArgumentsIsNameAndParentheses) {
    EXPECT_EQ(Command("X", pellix::kCall, {}).FormatLine(), "X()\n");
}

TEST(CommandTest, CallWithOneArgumentEnclosesIt) {
    EXPECT_EQ(Command("FALLBACK", pellix::kCall, {"1"}).FormatLine(), "FALLBACK(1)\n");
}

TEST(CommandTest, ArgumentsOfACallAreJoinedByTheMastersSeparator) {
    EXPECT_EQ(Command("X", pellix::kCall, {"a", "b"}).FormatLine(), "X(a,-fb)\n");
    EXPECT_EQ(Command("X", pellix::kCall, {"a", "a", "", "b"}).FormatLine(), "X(a,-fa,-f,-fb)\n");
}

TEST(CommandTest, QueryIsNameAndQuestionMark) {
    EXPECT_EQ(Command("ID", pellix::kQuery, {}).FormatLine(), "ID?\n");
    EXPECT_EQ(Command("ID", pellix::kQuery, {"ignored"}).FormatLine(), "ID?\n");
}

TEST(CommandTest, AssignmentUsesItsFirstArgumentOnly) {
    EXPECT_EQ(Command("PDOUT", pellix::kAssignment, {"v"}).FormatLine(), "PDOUT=v\n");
    EXPECT_EQ(Command("PDOUT", pellix::kAssignment, {"v", "w"}).FormatLine(), "PDOUT=v\n");
}

TEST(CommandTest, AssignmentWithoutArgumentHasNoValue) {
    EXPECT_EQ(Command("PDOUT", pellix::kAssignment, {}).FormatLine(), "PDOUT=\n");
}

TEST(CommandTest, UnknownTypeFormatsAsAnEmptyLine) {
    for (const int form : {0, 4, -1, 100}) {
        EXPECT_EQ(Command("X", form, {"a"}).FormatLine(), "\n") << form;
    }
}

TEST(CommandTest, FormsAndStatesHaveTheirFixedNumbers) {
    EXPECT_EQ(pellix::kCall, 1);
    EXPECT_EQ(pellix::kQuery, 2);
    EXPECT_EQ(pellix::kAssignment, 3);
    EXPECT_EQ(pellix::kCreated, 0);
    EXPECT_EQ(pellix::kActive, 1);
    EXPECT_EQ(pellix::kAcknowledged, 2);
    EXPECT_EQ(pellix::kFinished, 3);
    EXPECT_EQ(pellix::kFailed, 4);
}

TEST(CommandTest, StartsCreatedWithStatusZero) {
    const Command command("ID", pellix::kQuery, {});
    EXPECT_EQ(command.GetName(), "ID");
    EXPECT_EQ(command.GetState(), pellix::kCreated);
    EXPECT_EQ(command.GetStatus(), 0);
    EXPECT_FALSE(command.IsDone());
}

TEST(CommandTest, OnlyFinishedAndFailedAreTerminal) {
    Command command("ID", pellix::kQuery, {});
    for (const int state : {pellix::kActive, pellix::kAcknowledged}) {
        command.SetState(state);
        EXPECT_FALSE(command.IsDone()) << state;
    }
    for (const int state : {pellix::kFinished, pellix::kFailed}) {
        command.SetState(state);
        EXPECT_TRUE(command.IsDone()) << state;
    }
}

TEST(CommandTest, ALaterStateOverwritesATerminalOne) {
    Command command("ID", pellix::kQuery, {});
    command.Fail(7);
    command.SetState(pellix::kFinished);
    EXPECT_EQ(command.GetState(), pellix::kFinished);
    EXPECT_EQ(command.GetStatus(), 7);
    command.SetState(pellix::kAcknowledged);
    EXPECT_EQ(command.GetState(), pellix::kAcknowledged);
}

TEST(CommandTest, AgeCountsFromConstruction) {
    const auto before = std::chrono::steady_clock::now();
    const Command command("ID", pellix::kQuery, {});
    const auto after = std::chrono::steady_clock::now();
    EXPECT_TRUE(support::WaitFor([&] { return command.GetAge() > std::chrono::milliseconds(5); }));
    const auto age = command.GetAge();
    const auto now = std::chrono::steady_clock::now();
    EXPECT_LE(age, now - before);
    EXPECT_GE(age, std::chrono::milliseconds(5));
    EXPECT_LT(now - after - age, std::chrono::seconds(5));
}

TEST(CommandTest, WaitEndsAtOnceWhenTheCommandIsDone) {
    Command command("ID", pellix::kQuery, {});
    command.SetState(pellix::kFinished);
    EXPECT_LT(support::Measure([&] { command.WaitForDone(std::chrono::seconds(20)); }),
              std::chrono::seconds(10));
}

TEST(CommandTest, WaitEndsAfterItsSlice) {
    Command command("ID", pellix::kQuery, {});
    const auto waited =
        support::Measure([&] { command.WaitForDone(std::chrono::milliseconds(20)); });
    EXPECT_GE(waited, std::chrono::milliseconds(20));
    EXPECT_LT(waited, std::chrono::seconds(10));
    EXPECT_EQ(command.GetState(), pellix::kCreated);
}

TEST(CommandTest, TerminalStateWakesTheWaitingThread) {
    for (int i = 0; i < 50; ++i) {
        const int state = i % 2 == 0 ? pellix::kFinished : pellix::kFailed;
        Command command("ID", pellix::kQuery, {});
        std::thread replier(
            [&] { command.SetState(state); });  // by then, this thread usually waits
        EXPECT_LT(support::Measure([&] { command.WaitForDone(std::chrono::seconds(20)); }),
                  std::chrono::seconds(10));
        EXPECT_EQ(command.GetState(), state);
        replier.join();
    }
}

// A request that timed out must never look like a success.
TEST(CommandTest, StatusIsVisibleWithTheFailedState) {
    std::deque<Command> commands;
    for (int i = 0; i < 20000; ++i) {
        commands.emplace_back("ID", pellix::kQuery, std::vector<std::string>());
    }
    std::thread failer([&] {
        for (Command& command : commands) {
            command.Fail(pellix::kResultTimeout);
        }
    });
    int unseen = 0;
    for (const Command& command : commands) {  // while the other thread fails them
        while (command.GetState() != pellix::kFailed) {
        }
        unseen += command.GetStatus() == pellix::kResultTimeout ? 0 : 1;
    }
    failer.join();
    EXPECT_EQ(unseen, 0);
}

TEST(CommandTest, LockErrorLeavesTheStateAndIsLogged) {
    Command command("ID", pellix::kQuery, {});
    command.SetState(pellix::kActive);
    const support::LogCapture log;
    {
        const support::FailingLock failure;
        command.SetState(pellix::kFinished);
    }
    EXPECT_EQ(command.GetState(), pellix::kActive);
    EXPECT_EQ(log.All(), Messages{"Exception occured in SetCommandState"});
}
