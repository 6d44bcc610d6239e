#include "doctor/ToolOutput.h"

#include <gtest/gtest.h>

#include <csignal>

namespace tavrik {
namespace {

TEST(ToolOutputTest, OutputErrorsAndStatusAreCaptured) {
    const ToolOutput done = RunTool({"sh", "-c", "echo one; echo two >&2"});
    EXPECT_TRUE(done.succeeded);
    EXPECT_EQ(done.text, "one\ntwo\n");
    EXPECT_FALSE(RunTool({"false"}).succeeded);
}

TEST(ToolOutputTest, ErrorsCanBeDropped) {
    const ToolOutput done = RunTool({"sh", "-c", "echo one; echo two >&2; exit 1"},
                                    std::chrono::seconds(10), ErrorOutput::Dropped);
    EXPECT_FALSE(done.succeeded);
    EXPECT_EQ(done.text, "one\n");
}

TEST(ToolOutputTest, AMissingToolIsAFailure) {
    EXPECT_FALSE(RunTool({"no-such-tool"}).succeeded);
}

TEST(ToolOutputTest, AToolThatTakesTooLongIsEnded) {
    const auto start = std::chrono::steady_clock::now();
    const ToolOutput ended =
        RunTool({"sh", "-c", "echo begun; exec sleep infinity"}, std::chrono::seconds(1));
    EXPECT_FALSE(ended.succeeded);
    EXPECT_EQ(ended.text, "begun\n");
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(15));
}

TEST(ToolOutputTest, BackgroundProcessesAreNotWaitedFor) {
    const ToolOutput done = RunTool({"sh", "-c", "sleep 60 & echo $!"}, std::chrono::seconds(1));
    EXPECT_TRUE(done.succeeded);
    EXPECT_EQ(kill(std::stoi(done.text), SIGKILL), 0);  // it was still there
}

}  // namespace
}  // namespace tavrik
