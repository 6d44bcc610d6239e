#include "web/Worker.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>

#include "tests/support/WaitFor.h"
#include "tests/unit/web/FakeDaemon.h"

namespace tavrik {
namespace {

using support::WaitFor;

class WorkerTest : public testing::Test {
protected:
    void TearDown() override { isOver = true; }

    /// A job that runs until it is dropped, at the latest until the test is over.
    Worker::Job Lasting() {
        return [this](Daemon&, const std::stop_token& dropped) {
            ++running;
            WaitFor([&] { return dropped.stop_requested() || isOver; });
            --running;
            ++done;
        };
    }

    std::atomic<bool> isOver = false;
    std::atomic<int> running = 0;
    std::atomic<int> done = 0;
};

class WorkerOneThreadTest : public WorkerTest {
protected:
    Worker worker{Endpoint()};
};

class WorkerTwoThreadsTest : public WorkerTest {
protected:
    Worker worker{Endpoint(), 2};
};

TEST_F(WorkerOneThreadTest, DropsWhatRunsAndWhatWaitsForASubject) {
    worker.Enqueue(Lasting(), "a");
    worker.Enqueue(Lasting(), "a");
    worker.Enqueue(Lasting(), "b");
    ASSERT_TRUE(WaitFor([&] { return running == 1; }));
    worker.Drop("a");
    ASSERT_TRUE(WaitFor([&] { return done == 2 && running == 1; }));
    worker.Drop("b");
    ASSERT_TRUE(WaitFor([&] { return done == 3; }));
}

TEST_F(WorkerOneThreadTest, RefusesWhatWouldWaitTooLong) {
    constexpr int kMost = 1000;
    int taken = 0;
    while (taken < kMost && worker.Enqueue(Lasting())) {
        ++taken;
    }
    EXPECT_GT(taken, 10);
    EXPECT_LT(taken, kMost);
}

TEST_F(WorkerTwoThreadsTest, TakesAJobWhileManyOfAnotherSubjectWait) {
    int taken = 0;
    for (int i = 0; i < 100; ++i) {
        taken += worker.Enqueue(Lasting(), "a") ? 1 : 0;
    }
    EXPECT_LT(taken, 10);
    EXPECT_TRUE(worker.Enqueue(Lasting(), "b"));
    EXPECT_TRUE(WaitFor([&] { return running == 2; }));
}

TEST_F(WorkerTwoThreadsTest, DoesJobsOfTwoSubjectsAtTheSameTime) {
    worker.Enqueue(Lasting(), "a");
    worker.Enqueue(Lasting(), "b");
    EXPECT_TRUE(WaitFor([&] { return running == 2; }));
}

TEST_F(WorkerTwoThreadsTest, DoesJobsOfOneSubjectOneAfterTheOther) {
    worker.Enqueue(Lasting(), "a");
    worker.Enqueue(Lasting(), "a");
    worker.Enqueue(Lasting(), "b");
    ASSERT_TRUE(WaitFor([&] { return running == 2; }));
    worker.Drop("b");  // the second job of "a" still waits
    ASSERT_TRUE(WaitFor([&] { return done == 1; }));
    EXPECT_FALSE(WaitFor([&] { return running == 2; }, std::chrono::milliseconds(20)));
}

TEST(WorkerEndTest, AsksTheRunningJobToStop) {
    std::promise<void> begun;
    std::promise<bool> wasTold;
    {
        Worker worker{Endpoint()};
        worker.Enqueue([&](Daemon&, const std::stop_token& dropped) {
            begun.set_value();
            wasTold.set_value(WaitFor([&] { return worker.Ending().stop_requested(); }));
            EXPECT_FALSE(dropped.stop_requested());  // nobody asked for that
        });
        begun.get_future().wait();
    }
    EXPECT_TRUE(wasTold.get_future().get());
}

TEST(WorkerEndTest, TheRunningJobCannotCallTheDaemonAnyMore) {
    FakeDaemon fake;
    fake.On("Disable", [](const auto&) { return xmlrpc_c::value_int(0); });
    std::promise<void> begun;
    std::promise<std::string> failure;
    {
        Worker worker(fake.Server());
        worker.Enqueue([&](Daemon& daemon, const std::stop_token& /*dropped*/) {
            EXPECT_EQ(daemon.Get<int>("Disable"), 0);  // opens the connection
            begun.set_value();
            WaitFor([&] { return worker.Ending().stop_requested(); });
            try {
                daemon.Get<int>("Disable");
                failure.set_value("");
            } catch (const Failure& caught) {
                failure.set_value(caught.what());
            }
        });
        begun.get_future().wait();
    }
    EXPECT_EQ(fake.Calls("Disable"), 1);
    EXPECT_EQ(failure.get_future().get(), fake.Server().Address() + " was not called: interrupted");
}

}  // namespace
}  // namespace tavrik
