#include "daemon/Process.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "common/StandardDescriptors.h"
#include "tests/support/LogCapture.h"
#include "tests/support/OutputCapture.h"
#include "tests/support/WaitFor.h"
#include "tests/unit/daemon/LibraryFaults.h"
#include "tests/unit/daemon/RunningServer.h"

using support::LogCapture;
using support::OutputCapture;
using support::WaitFor;

namespace {

constexpr std::chrono::milliseconds kMoment{100};
constexpr const char* kCaughtCtrlC = "TavrikDaemon::handler caught CTRL-C\n";

class ProcessTest : public testing::Test {
protected:
    /// Code that ends the process or cannot be undone is tested in a child process.
    ProcessTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }

    ~ProcessTest() override {
        TavrikDaemon::server0 = nullptr;
        TavrikDaemon::server1 = nullptr;
        TavrikDaemon::interrupted = false;
    }
};

using ProcessDeathTest = ProcessTest;

/// A socket that listens on a port of all interfaces, as another daemon would.
class TakenPort {
public:
    TakenPort() {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<std::uint16_t>(number));
        const int on = 1;
        ::setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
        EXPECT_EQ(::bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
        EXPECT_EQ(::listen(listener, 1), 0);
    }
    TakenPort(const TakenPort&) = delete;
    TakenPort& operator=(const TakenPort&) = delete;
    ~TakenPort() { ::close(listener); }

    unsigned Number() const { return number; }

private:
    const unsigned number = FreePort();
    const int listener = ::socket(AF_INET, SOCK_STREAM, 0);
};

/// Makes every write to standard error fail with ENOSPC.
class FullStandardError {
public:
    FullStandardError() {
        const int full = ::open("/dev/full", O_WRONLY | O_CLOEXEC);
        ::dup2(full, STDERR_FILENO);
        ::close(full);
    }
    FullStandardError(const FullStandardError&) = delete;
    FullStandardError& operator=(const FullStandardError&) = delete;
    ~FullStandardError() {
        ::dup2(original, STDERR_FILENO);
        ::close(original);
    }

private:
    const int original = ::fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0);
};

TEST_F(ProcessTest, CtrlCIsReportedAndSetsTheMarker) {
    const OutputCapture errors(STDERR_FILENO);
    TavrikDaemon::handler(SIGINT);
    EXPECT_EQ(errors.Text(), kCaughtCtrlC);
    EXPECT_TRUE(TavrikDaemon::interrupted);
}

TEST_F(ProcessTest, AnotherSignalIsReportedByItsNumber) {
    for (const int signal : {SIGTERM, 0, -1, INT_MAX, INT_MIN}) {
        const OutputCapture errors(STDERR_FILENO);
        TavrikDaemon::handler(signal);
        EXPECT_EQ(errors.Text(),
                  "TavrikDaemon::handler caught signal: " + std::to_string(signal) + "\n");
    }
    EXPECT_FALSE(TavrikDaemon::interrupted);
}

TEST_F(ProcessTest, TheHandlerKeepsErrno) {
    for (const int signal : {SIGINT, SIGTERM}) {
        int seen = 0;
        {
            const FullStandardError full;
            errno = EAGAIN;
            TavrikDaemon::handler(signal);
            seen = errno;
        }
        EXPECT_EQ(seen, EAGAIN);
    }
}

TEST_F(ProcessTest, CtrlCEndsBothPublishedServers) {
    const LogCapture log;
    const OutputCapture errors(STDERR_FILENO);
    RunningServer first;
    RunningServer second;
    TavrikDaemon::server0 = &first.Server();
    TavrikDaemon::server1 = &second.Server();
    TavrikDaemon::handler(SIGINT);
    EXPECT_TRUE(first.WaitUntilReturned());
    EXPECT_TRUE(second.WaitUntilReturned());
}

TEST_F(ProcessTest, CtrlCBeforeTheServersArePublishedEndsNone) {
    const LogCapture log;
    const OutputCapture errors(STDERR_FILENO);
    const RunningServer server;
    TavrikDaemon::handler(SIGINT);
    EXPECT_FALSE(WaitFor([&] { return server.HasReturned(); }, kMoment));
    EXPECT_TRUE(server.Answer("GetVersion", {}).starts_with("string"));
}

TEST_F(ProcessTest, AnotherSignalEndsNoServer) {
    const LogCapture log;
    const OutputCapture errors(STDERR_FILENO);
    RunningServer server;
    TavrikDaemon::server0 = &server.Server();
    TavrikDaemon::handler(SIGTERM);
    EXPECT_FALSE(WaitFor([&] { return server.HasReturned(); }, kMoment));
}

TEST_F(ProcessTest, ASignalOnTheServersOwnThreadEndsTheServer) {
    const LogCapture log;
    const OutputCapture errors(STDERR_FILENO);
    RunningServer server;
    TavrikDaemon::server0 = &server.Server();
    const auto before = std::signal(SIGINT, TavrikDaemon::handler);
    pthread_kill(server.Thread(), SIGINT);
    EXPECT_TRUE(server.WaitUntilReturned());
    std::signal(SIGINT, before);
    EXPECT_EQ(errors.Text(), kCaughtCtrlC);
}

TEST_F(ProcessTest, HandlersMayRunOnManyThreadsWhileTheServersEnd) {
    const LogCapture log;
    const OutputCapture errors(STDERR_FILENO);
    for (int cycle = 0; cycle < 300; ++cycle) {
        AbyssServer server(nullptr, FreePort());
        TavrikDaemon::server0 = &server;
        std::atomic<bool> returned = false;
        const auto interrupt = [&] {
            while (!returned) {
                TavrikDaemon::handler(SIGINT);
                std::this_thread::sleep_for(std::chrono::microseconds(50));
            }
        };
        std::thread first(interrupt);
        std::thread second(interrupt);
        std::thread third(interrupt);
        TavrikDaemon::runServer(&server);
        returned = true;
        first.join();
        second.join();
        third.join();
    }
}

TEST_F(ProcessTest, TheServerThreadLogsItsPortAndReturnsNull) {
    const LogCapture log;
    AbyssServer server(nullptr, FreePort());
    std::atomic<bool> returned = false;
    std::thread terminator([&] {
        while (!returned) {
            server.terminate();
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    });
    EXPECT_EQ(TavrikDaemon::runServer(&server), nullptr);
    returned = true;
    terminator.join();
    EXPECT_EQ(log.OfThisThread(),
              support::Messages{"Port number: " + std::to_string(server.getPort())});
}

/// Serves on a thread that does not catch exceptions, as main does.
void ServeOnThread(unsigned port) {
    AbyssServer server(nullptr, port);
    pthread_t thread{};
    pthread_create(&thread, nullptr, TavrikDaemon::runServer, &server);
    pthread_join(thread, nullptr);
}

TEST_F(ProcessDeathTest, AnOccupiedPortEndsTheProcess) {
    const TakenPort port;
    EXPECT_EXIT(ServeOnThread(port.Number()), testing::KilledBySignal(SIGABRT), "terminate called");
}

/// @return an address that can be neither read nor written
AbyssServer* UntouchableServer() {
    return static_cast<AbyssServer*>(
        ::mmap(nullptr, sizeof(AbyssServer), PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
}

TEST_F(ProcessDeathTest, RetiredServersAreNotUsed) {
    EXPECT_EXIT(
        {
            TavrikDaemon::server0 = UntouchableServer();
            TavrikDaemon::server1 = UntouchableServer();
            TavrikDaemon::retireServers();
            TavrikDaemon::handler(SIGINT);
            std::_Exit(TavrikDaemon::interrupted ? EXIT_SUCCESS : EXIT_FAILURE);
        },
        testing::ExitedWithCode(EXIT_SUCCESS), "caught CTRL-C");
}

/// Ends the process, with success if retireServers() waited for a handler inside a server.
void RetireWhileAHandlerIsInside() {
    RunningServer server;
    TavrikDaemon::server0 = &server.Server();
    HeldTermination termination;
    std::thread interrupted([] { TavrikDaemon::handler(SIGINT); });
    const bool came = termination.WaitUntilInside();

    std::atomic<bool> retired = false;
    std::thread retiring([&] {
        TavrikDaemon::retireServers();
        retired = true;
    });
    const bool waited = !WaitFor([&] { return retired.load(); }, kMoment);
    termination.Release();
    interrupted.join();
    retiring.join();
    std::_Exit(came && waited ? EXIT_SUCCESS : EXIT_FAILURE);
}

TEST_F(ProcessDeathTest, RetirementWaitsForHandlersInsideAServer) {
    EXPECT_EXIT(RetireWhileAHandlerIsInside(), testing::ExitedWithCode(EXIT_SUCCESS), "");
}

/// Stops the servers as main does, while signals arrive; ends the process.
void StopUnderSignals() {
    std::atomic<bool> stopped = false;
    const auto interrupt = [&] {
        while (!stopped) {
            TavrikDaemon::handler(SIGINT);
        }
    };
    std::thread first(interrupt);
    std::thread second(interrupt);
    {
        AbyssServer server0(nullptr, FreePort());
        AbyssServer server1(nullptr, FreePort());
        std::thread thread0(TavrikDaemon::runServer, &server0);
        std::thread thread1(TavrikDaemon::runServer, &server1);
        TavrikDaemon::server0 = &server0;
        TavrikDaemon::server1 = &server1;
        thread0.join();
        thread1.join();
        TavrikDaemon::retireServers();
    }
    std::this_thread::sleep_for(kMoment);
    stopped = true;
    first.join();
    second.join();
    std::_Exit(EXIT_SUCCESS);
}

TEST_F(ProcessDeathTest, SignalsMayArriveDuringTheWholeStop) {
    EXPECT_EXIT(StopUnderSignals(), testing::ExitedWithCode(EXIT_SUCCESS), "caught CTRL-C");
}

TEST_F(ProcessDeathTest, TheExitRoutineDeletesTheManagerAndReportsIt) {
    EXPECT_EXIT(
        {
            ::dup2(STDERR_FILENO, STDOUT_FILENO);
            TavrikDaemon::gripperManager = new GripperManager;
            TavrikDaemon::shutdown();
            std::_Exit(EXIT_SUCCESS);
        },
        testing::ExitedWithCode(EXIT_SUCCESS),
        "GripperManager started\n.* GripperManager stopped\nTavrikDaemon::shutdown\n$");
}

TEST_F(ProcessTest, TheExitRoutineWorksWithoutAManager) {
    const LogCapture log;
    const OutputCapture errors(STDERR_FILENO);
    TavrikDaemon::shutdown();
    EXPECT_EQ(errors.Text(), "TavrikDaemon::shutdown\n");
    EXPECT_EQ(log.Text(), "");
}

/// Runs `action` in a child process.
/// @return its exit status, which is the result of `action`
int StatusOfChild(const std::function<int()>& action) {
    const pid_t child = ::fork();
    if (child == 0) {
        ::_exit(action());
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

int LowestFreeAboveStandard() {
    const int lowest = ::fcntl(STDIN_FILENO, F_DUPFD, STDERR_FILENO + 1);
    ::close(lowest);
    return lowest;
}

bool IsSameFile(const struct stat& one, const struct stat& other) {
    return one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

bool IsOpenOnNothing(int descriptor, const struct stat& file) {
    struct stat nothing {};
    ::stat("/dev/null", &nothing);
    return S_ISCHR(file.st_mode) && file.st_rdev == nothing.st_rdev &&
           (::fcntl(descriptor, F_GETFL) & O_ACCMODE) == O_RDWR;
}

/// Closes the standard descriptors whose bits are set in `closed` and calls
/// KeepStandardDescriptors().
/// @return 0, 10 + the descriptor that is wrong, or 20 if another descriptor was left open
int CloseAndKeep(unsigned closed) {
    const auto isClosed = [closed](int descriptor) { return (closed >> descriptor & 1U) != 0; };
    const int lowest = LowestFreeAboveStandard();
    std::array<struct stat, 3> before{};
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        ::fstat(descriptor, &before.at(static_cast<std::size_t>(descriptor)));
        if (isClosed(descriptor)) {
            ::close(descriptor);
        }
    }
    KeepStandardDescriptors(O_RDWR);
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        struct stat now {};
        const bool open = ::fstat(descriptor, &now) == 0;
        const bool right = isClosed(descriptor)
                               ? IsOpenOnNothing(descriptor, now)
                               : IsSameFile(now, before.at(static_cast<std::size_t>(descriptor)));
        if (!open || !right) {
            return 10 + descriptor;
        }
    }
    return LowestFreeAboveStandard() == lowest ? 0 : 20;
}

TEST_F(ProcessTest, ClosedStandardDescriptorsAreOpenedOnDevNullAndTheOthersKept) {
    for (const unsigned closed : {0U, 1U, 2U, 3U, 4U, 5U, 6U, 7U}) {
        EXPECT_EQ(StatusOfChild([closed] { return CloseAndKeep(closed); }), 0) << closed;
    }
}

}  // namespace
