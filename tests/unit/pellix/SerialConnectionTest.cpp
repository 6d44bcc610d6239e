#include "pellix/SerialConnection.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <exception>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/Allocations.h"
#include "tests/support/LogCapture.h"
#include "tests/support/OutputCapture.h"
#include "tests/support/Pty.h"
#include "tests/support/ScriptedRead.h"
#include "tests/support/WaitFor.h"

using pellix::SerialConnection;
using std::chrono::milliseconds;
using std::chrono::seconds;
using support::LogCapture;
using support::Measure;
using support::Messages;
using support::Pty;

namespace {

/// @return the number of the next descriptor that this process opens
int NextDescriptor() {
    const int next = ::fcntl(STDIN_FILENO, F_DUPFD, 0);
    ::close(next);
    return next;
}

bool IsOpen(int descriptor) {
    return ::fcntl(descriptor, F_GETFD) != -1;
}

/// @return whether `action` throws a pointer to an exception
template <typename Action>
bool ThrowsPointer(Action action) {
    try {
        action();
        return false;
    } catch (std::exception* failure) {  // NOLINT(misc-throw-by-value-catch-by-reference)
        delete failure;
        return true;
    }
}

}  // namespace

class SerialConnectionTest : public testing::Test {
protected:
    std::string Line(const std::string& text) const { return "SerialConnection: " + text; }

    Messages OpenLines() const {
        return {Line("Opening device " + pty.Path()), Line("Initialize device succeeded")};
    }

    LogCapture log;
    Pty pty;
};

TEST_F(SerialConnectionTest, ConstructorOpensAndDestructorCloses) {
    const int descriptor = NextDescriptor();
    {
        const SerialConnection connection(pty.Path());
        EXPECT_TRUE(IsOpen(descriptor));
        EXPECT_EQ(log.All(), OpenLines());
        log.Clear();
    }
    EXPECT_FALSE(IsOpen(descriptor));
    EXPECT_EQ(log.All(), Messages{Line("Closed device " + pty.Path())});
}

TEST_F(SerialConnectionTest, TtyGetsExactlyTheSettings) {
    const Pty cooked(Pty::Settings::kCooked);
    termios before = cooked.GetSettings();
    ASSERT_NE(before.c_lflag & ECHO, 0U);
    before.c_cc[VINTR] = 7;
    before.c_cc[VSTART] = 8;
    cooked.SetSettings(before);
    const SerialConnection connection(cooked.Path());
    const termios after = cooked.GetSettings();
    EXPECT_EQ(after.c_iflag, static_cast<tcflag_t>(IGNBRK | IGNPAR));
    EXPECT_EQ(after.c_oflag, 0U);
    EXPECT_EQ(after.c_cflag, static_cast<tcflag_t>(B115200 | CS8 | CLOCAL | CREAD));
    EXPECT_EQ(after.c_lflag, 0U);
    EXPECT_EQ(after.c_cc[VTIME], 10);
    EXPECT_EQ(after.c_cc[VMIN], 0);
    EXPECT_EQ(after.c_line, before.c_line);
    for (std::size_t i = 0; i < NCCS; ++i) {
        if (i != VTIME && i != VMIN) {
            EXPECT_EQ(after.c_cc[i], before.c_cc[i]) << i;
        }
    }
}

TEST_F(SerialConnectionTest, TtyDoesNotBecomeTheControllingTerminal) {
    const pid_t child = ::fork();
    if (child == 0) {
        ::setsid();  // without a controlling terminal, the next tty opened could become it
        const SerialConnection connection(pty.KernelPath());
        ::_exit(::open("/dev/tty", O_RDWR | O_CLOEXEC) == -1 ? 0 : 1);
    }
    int status = -1;
    ::waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
}

TEST_F(SerialConnectionTest, OpeningDiscardsPendingInput) {
    pty.Send("old\n");
    ASSERT_TRUE(support::WaitFor([this] { return pty.Pending() == 4; }));
    SerialConnection connection(pty.Path());
    pty.Send("new\n");
    EXPECT_EQ(connection.Read(), "new\n");
}

TEST_F(SerialConnectionTest, PathThatDoesNotExistThrowsAPointer) {
    const std::string path = pty.Path() + "/none";
    const std::size_t before = support::LiveBytes();
    EXPECT_TRUE(ThrowsPointer([&] { const SerialConnection connection(path); }));
    EXPECT_EQ(support::LiveBytes(), before);
    EXPECT_EQ(log.All(), (Messages{Line("Opening device " + path), Line("Open call failed")}));
}

TEST_F(SerialConnectionTest, FileThatIsNotATerminalThrowsAPointerAndStaysOpen) {
    const int descriptor = NextDescriptor();
    std::string error;
    {
        const support::OutputCapture errors(STDERR_FILENO);
        // The capture already has its own descriptors.
        const int opened = NextDescriptor();
        EXPECT_TRUE(ThrowsPointer([] { const SerialConnection connection("/dev/null"); }));
        EXPECT_TRUE(IsOpen(opened));
        ::close(opened);
        error = errors.Text();
    }
    EXPECT_EQ(NextDescriptor(), descriptor);
    EXPECT_EQ(error, "terminal: tcgetattr() failed: Inappropriate ioctl for device\n");
    EXPECT_EQ(log.All(),
              (Messages{Line("Opening device /dev/null"), Line("Initialize device succeeded")}));
}

TEST_F(SerialConnectionTest, OpeningAgainChangesNothing) {
    SerialConnection connection(pty.Path());
    pty.Send("kept\n");
    ASSERT_TRUE(support::WaitFor([this] { return pty.Pending() == 5; }));
    const int next = NextDescriptor();
    log.Clear();
    connection.Open();
    EXPECT_EQ(log.All(), Messages{Line(pty.Path() + " already open")});
    EXPECT_EQ(NextDescriptor(), next);
    EXPECT_EQ(connection.Read(), "kept\n");
}

TEST_F(SerialConnectionTest, ClosingAgainChangesNothing) {
    const int descriptor = NextDescriptor();
    SerialConnection connection(pty.Path());
    connection.Close();
    const int other = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(other, descriptor);
    log.Clear();
    connection.Close();
    EXPECT_EQ(log.All(), Messages{Line(pty.Path() + " not open")});
    EXPECT_TRUE(IsOpen(other));
    ::close(other);
    connection.Open();
    pty.Send("again\n");
    EXPECT_EQ(connection.Read(), "again\n");
}

TEST_F(SerialConnectionTest, ReadReturnsTheInputSoFar) {
    SerialConnection connection(pty.Path());
    pty.Send("ACK ID\nFIN");
    ASSERT_TRUE(support::WaitFor([this] { return pty.Pending() == 10; }));
    log.Clear();
    EXPECT_EQ(connection.Read(), "ACK ID\nFIN");
    EXPECT_TRUE(log.All().empty());
}

TEST_F(SerialConnectionTest, InputIsNotTranslated) {
    SerialConnection connection(pty.Path());
    const std::string text =
        "a\r\n\x03\x04\x11\x13\x1A\x7F\xFF"
        "b\r";
    pty.Send(text);
    ASSERT_TRUE(support::WaitFor([&] { return pty.Pending() == text.size(); }));
    EXPECT_EQ(connection.Read(), text);
}

TEST_F(SerialConnectionTest, ReadWithoutInputEndsAfterASecond) {
    SerialConnection connection(pty.Path());
    log.Clear();
    std::string text = "none";
    const auto waited = Measure([&] { text = connection.Read(); });
    EXPECT_EQ(text, "");
    EXPECT_GE(waited, milliseconds(990));  // the kernel rounds to ticks
    EXPECT_LT(waited, seconds(5));
    EXPECT_EQ(log.All(), Messages{"Input timeout"});
}

TEST_F(SerialConnectionTest, ReadIsCutAtItsFirstZeroByte) {
    SerialConnection connection(pty.Path());
    pty.Send(std::string("ID=1\n\0ID=2\n", 11));
    ASSERT_TRUE(support::WaitFor([this] { return pty.Pending() == 11; }));
    EXPECT_EQ(connection.Read(), "ID=1\n");
    pty.Send("ID=3\n");
    EXPECT_EQ(connection.Read(), "ID=3\n");
}

TEST_F(SerialConnectionTest, InputLongerThanTheBufferIsReadInPieces) {
    SerialConnection connection(pty.Path());
    std::string sent;
    while (sent.size() < 9000) {
        sent += "@PDIN=[" + std::to_string(sent.size()) + "]\n";
    }
    pty.Send(sent);
    std::string received;
    while (received.size() < sent.size()) {
        const std::string piece = connection.Read();
        ASSERT_FALSE(piece.empty());
        ASSERT_LE(piece.size(), 4096U);
        received += piece;
    }
    EXPECT_EQ(received, sent);
}

TEST_F(SerialConnectionTest, ReadThatFillsTheBufferIsReturnedCompletely) {
    SerialConnection connection(pty.Path());
    const std::string text(4096, 'x');
    const support::ScriptedRead read(text);
    EXPECT_EQ(connection.Read(), text);
}

TEST_F(SerialConnectionTest, ReadNeverExceedsItsBuffer) {
    SerialConnection connection(pty.Path());
    const support::ScriptedRead read(std::string(5000, 'x'));
    EXPECT_EQ(connection.Read().size(), 4096U);
}

TEST_F(SerialConnectionTest, FailedReadIsEmptyWithoutALogLine) {
    SerialConnection connection(pty.Path());
    log.Clear();
    const support::ScriptedRead read(std::nullopt);
    EXPECT_EQ(connection.Read(), "");
    EXPECT_TRUE(log.All().empty());
}

TEST_F(SerialConnectionTest, ReadsAreEmptyAndWritesFailAfterAHangUp) {
    SerialConnection connection(pty.Path());
    pty.HangUp();
    log.Clear();
    std::string text = "none";
    EXPECT_LT(Measure([&] { text = connection.Read(); }), milliseconds(900));
    EXPECT_EQ(text, "");
    EXPECT_EQ(log.All(), Messages{"Input timeout"});
    log.Clear();
    EXPECT_LT(Measure([&] { EXPECT_EQ(connection.Write("ID?\n"), -1); }), milliseconds(900));
    EXPECT_EQ(log.All(), Messages{"Failed to write to serial connection: -1"});
}

TEST_F(SerialConnectionTest, HangUpEndsABlockedRead) {
    SerialConnection connection(pty.Path());
    milliseconds waited{0};
    std::thread reader([&] { waited = Measure([&] { EXPECT_EQ(connection.Read(), ""); }); });
    pty.HangUp();
    reader.join();
    EXPECT_LT(waited, milliseconds(900));
}

TEST_F(SerialConnectionTest, ReopenClosesAndOpens) {
    SerialConnection connection(pty.Path());
    const int next = NextDescriptor();
    log.Clear();
    connection.Reopen();
    EXPECT_EQ(NextDescriptor(), next);
    Messages expected = {Line("Reopening"), Line("Closed device " + pty.Path())};
    const Messages opened = OpenLines();
    expected.insert(expected.end(), opened.begin(), opened.end());
    EXPECT_EQ(log.All(), expected);
}

TEST_F(SerialConnectionTest, ReopenAppliesTheSettingsAndDiscardsPendingInput) {
    SerialConnection connection(pty.Path());
    const termios wanted = pty.GetSettings();
    termios other = wanted;
    other.c_lflag |= ICANON | ECHO;
    other.c_iflag |= ICRNL;
    other.c_cc[VMIN] = 4;
    pty.SetSettings(other);
    pty.Send("old\n");
    ASSERT_TRUE(support::WaitFor([this] { return pty.Pending() == 4; }));
    connection.Reopen();
    const termios after = pty.GetSettings();
    EXPECT_EQ(after.c_lflag, wanted.c_lflag);
    EXPECT_EQ(after.c_iflag, wanted.c_iflag);
    EXPECT_EQ(after.c_cc[VMIN], 0);
    pty.Send("new\n");
    EXPECT_EQ(connection.Read(), "new\n");
}

TEST_F(SerialConnectionTest, FailedReopenThrowsAPointerAndLeavesTheConnectionClosed) {
    const int descriptor = NextDescriptor();
    SerialConnection connection(pty.Path());
    pty.RemovePath();
    const std::size_t before = support::LiveBytes();
    log.Clear();
    EXPECT_TRUE(ThrowsPointer([&] { connection.Reopen(); }));
    EXPECT_EQ(log.All(),
              (Messages{Line("Reopening"), Line("Closed device " + pty.Path()),
                        Line("Opening device " + pty.Path()), Line("Open call failed")}));
    EXPECT_FALSE(IsOpen(descriptor));
    log.Clear();
    EXPECT_TRUE(ThrowsPointer([&] { connection.Reopen(); }));
    EXPECT_EQ(log.All(),
              (Messages{Line("Reopening"), Line(pty.Path() + " not open"),
                        Line("Opening device " + pty.Path()), Line("Open call failed")}));
    EXPECT_EQ(support::LiveBytes(), before);
}

TEST_F(SerialConnectionTest, FailedReopensDoNotUseUpDescriptors) {
    SerialConnection connection(pty.Path());
    const int next = NextDescriptor();
    pty.RemovePath();
    ASSERT_EQ(::symlink("/dev/null", pty.Path().c_str()), 0);
    {
        const support::OutputCapture errors(STDERR_FILENO);
        for (int i = 0; i < 10; ++i) {
            EXPECT_TRUE(ThrowsPointer([&] { connection.Reopen(); }));
        }
    }
    EXPECT_EQ(NextDescriptor(), next);  // the half-opened descriptor was reused
    EXPECT_EQ(connection.Write("ID?\n"), -1);
    EXPECT_EQ(connection.Read(), "");
    pty.RemovePath();
    pty.RestorePath();
    connection.Reopen();
    EXPECT_EQ(NextDescriptor(), next);
    EXPECT_EQ(connection.Write("ID?\n"), 0);
}

TEST_F(SerialConnectionTest, DescriptorMayExceedTheRangeOfTheReadSet) {
    rlimit limit{};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &limit), 0);
    const rlimit before = limit;
    limit.rlim_cur = std::min<rlim_t>(limit.rlim_max, FD_SETSIZE + 100);
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &limit), 0);
    if (limit.rlim_cur < FD_SETSIZE + 10) {
        GTEST_SKIP() << "this system grants too few descriptors";
    }
    std::vector<int> occupied;
    while (NextDescriptor() < FD_SETSIZE) {
        occupied.push_back(::dup(STDIN_FILENO));
    }
    {
        SerialConnection connection(pty.Path());
        EXPECT_TRUE(IsOpen(FD_SETSIZE));
        EXPECT_EQ(connection.Write("ID?\n"), 0);
        EXPECT_EQ(pty.Receive(4), "ID?\n");
    }
    for (const int descriptor : occupied) {
        ::close(descriptor);
    }
    ::setrlimit(RLIMIT_NOFILE, &before);
}

TEST_F(SerialConnectionTest, ConnectionWorksAgainAfterTheTtyReturns) {
    SerialConnection connection(pty.Path());
    pty.RemovePath();
    EXPECT_TRUE(ThrowsPointer([&] { connection.Reopen(); }));
    pty.RestorePath();
    connection.Reopen();
    EXPECT_EQ(connection.Write("ID?\n"), 0);  // the lock was released
    EXPECT_EQ(pty.Receive(4), "ID?\n");
    pty.Send("ACK ID\n");
    EXPECT_EQ(connection.Read(), "ACK ID\n");
}

// A client's socket may have got the number of the closed descriptor.
TEST_F(SerialConnectionTest, ClosedConnectionAccessesNoOtherFile) {
    const int descriptor = NextDescriptor();
    SerialConnection connection(pty.Path());
    pty.RemovePath();
    EXPECT_TRUE(ThrowsPointer([&] { connection.Reopen(); }));
    std::array<int, 2> ends;
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, ends.data()), 0);
    ASSERT_EQ(ends[0], descriptor);
    ASSERT_EQ(::write(ends[1], "private", 7), 7);

    log.Clear();
    EXPECT_EQ(connection.Read(), "");
    EXPECT_TRUE(log.All().empty());
    EXPECT_EQ(connection.Write("ID?\n"), -1);
    EXPECT_EQ(log.All(), Messages{"Failed to write to serial connection: -1"});
    EXPECT_TRUE(ThrowsPointer([&] { connection.Reopen(); }));

    std::array<char, 16> buffer;
    EXPECT_EQ(::read(ends[0], buffer.data(), buffer.size()), 7);
    EXPECT_EQ(::read(ends[1], buffer.data(), buffer.size()), -1);
    ::close(ends[0]);
    ::close(ends[1]);
}
