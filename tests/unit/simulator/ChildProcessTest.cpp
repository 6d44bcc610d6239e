#include "simulator/ChildProcess.h"

#include <gtest/gtest.h>

#include <csignal>
#include <optional>
#include <string>
#include <vector>

#include "tests/support/WaitFor.h"

namespace simulator {
namespace {

class ChildProcessTest : public testing::Test {
protected:
    ~ChildProcessTest() override { child.Signal(SIGKILL); }

    void Shell(const std::string& script) {
        child.Start({"sh", "-c", script}, {{"SIM_TEST", "value"}});
    }

    int Status() {
        std::optional<int> status;
        support::WaitFor([this, &status] {
            status = child.Collect();
            return status.has_value();
        });
        return status.value_or(-1);
    }

    ChildProcess child;
};

TEST_F(ChildProcessTest, ReturnsTheExitStatus) {
    Shell("exit 7");
    EXPECT_EQ(Status(), 7);
}

TEST_F(ChildProcessTest, ReturnsASignalPlus128) {
    Shell("kill -TERM $$");
    EXPECT_EQ(Status(), 128 + SIGTERM);
}

TEST_F(ChildProcessTest, ReturnsStatus127IfTheCommandCannotRun) {
    child.Start({"/nonexistent/command"}, {});
    EXPECT_EQ(Status(), 127);
}

TEST_F(ChildProcessTest, AddsToTheEnvironment) {
    Shell(R"(test "$SIM_TEST" = value && test -n "$PATH")");
    EXPECT_EQ(Status(), 0);
}

TEST_F(ChildProcessTest, ReturnsTheProcessId) {
    const pid_t pid = child.Start({"sleep", "60"}, {});
    EXPECT_EQ(kill(pid, SIGKILL), 0);
    EXPECT_EQ(Status(), 128 + SIGKILL);
}

TEST_F(ChildProcessTest, HasAnEmptyStandardInput) {
    Shell("read line; test $? -eq 1");
    EXPECT_EQ(Status(), 0);
}

TEST_F(ChildProcessTest, ReceivesSignalsThatWeIgnoreOrBlock) {
    void (*const before)(int) = std::signal(SIGINT, SIG_IGN);
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGINT);
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
    Shell("exec sleep 60");
    std::signal(SIGINT, before);
    pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
    EXPECT_TRUE(child.Signal(SIGINT));
    EXPECT_EQ(Status(), 128 + SIGINT);
}

TEST_F(ChildProcessTest, IsNotSignalledBeforeTheStartOrAfterTheEnd) {
    EXPECT_FALSE(child.Signal(SIGINT));
    Shell("exit 0");
    EXPECT_EQ(Status(), 0);
    EXPECT_FALSE(child.Signal(SIGINT));
}

TEST_F(ChildProcessTest, IsNotCollectedWhileItRuns) {
    Shell("exec sleep 60");
    EXPECT_EQ(child.Collect(), std::nullopt);
}

}  // namespace
}  // namespace simulator
