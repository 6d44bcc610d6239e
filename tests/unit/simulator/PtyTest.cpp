#include "simulator/Pty.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <future>
#include <memory>
#include <string>

#include "tests/support/WaitFor.h"

namespace simulator {
namespace {

using std::chrono::milliseconds;
using support::WaitFor;

class PtyTest : public testing::Test {
protected:
    bool IsRaw() const {
        termios settings{};
        const FileDescriptor other = pty->OpenTty();
        tcgetattr(other.Get(), &settings);
        return (settings.c_lflag & (ECHO | ICANON)) == 0;
    }

    std::unique_ptr<Pty> pty = std::make_unique<Pty>();
    FileDescriptor tty = pty->OpenTty();
};

TEST_F(PtyTest, IsATty) {
    EXPECT_NE(isatty(tty.Get()), 0);
    std::array<char, 64> name{};
    ASSERT_EQ(ttyname_r(tty.Get(), name.data(), name.size()), 0);
    EXPECT_EQ(pty->NodePath(), name.data());
}

TEST_F(PtyTest, KeepsSettingsAfterTheLastClient) {
    EXPECT_FALSE(IsRaw());
    pty->SetRaw();
    tty.Close();
    EXPECT_TRUE(IsRaw());
}

TEST_F(PtyTest, TheDeviceDoesNotBlock) {
    std::array<char, 8> buffer{};
    EXPECT_EQ(read(pty->Descriptor(), buffer.data(), buffer.size()), -1);
    EXPECT_EQ(errno, EAGAIN);
}

TEST_F(PtyTest, HangsUpAtTheEnd) {
    auto blocked = std::async(std::launch::async, [this] {
        std::array<char, 8> buffer{};
        return read(tty.Get(), buffer.data(), buffer.size());
    });
    EXPECT_EQ(blocked.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
    pty.reset();
    ASSERT_EQ(blocked.wait_for(support::kPatience), std::future_status::ready);
    EXPECT_LE(blocked.get(), 0);
    EXPECT_EQ(write(tty.Get(), "x", 1), -1);
    EXPECT_EQ(errno, EIO);
}

class PtyPortTest : public testing::Test {
protected:
    void Open(PtyPort::Start start) {
        port = std::make_unique<PtyPort>(start);
        tty = FileDescriptor(open(port->NodePath().c_str(), O_RDWR | O_NOCTTY));
        ASSERT_NE(tty.Get(), -1);
    }

    bool HasRoom() const {
        pollfd entry{tty.Get(), POLLOUT, 0};
        return poll(&entry, 1, 0) == 1 && (entry.revents & POLLOUT) != 0;
    }

    void SetRaw() const {
        termios settings{};
        tcgetattr(tty.Get(), &settings);
        cfmakeraw(&settings);
        tcsetattr(tty.Get(), TCSANOW, &settings);
    }

    /// Reads `length` bytes from the tty, or fewer if nothing arrives for 10 s.
    std::string ReadTty(std::size_t length) const {
        std::string text;
        std::array<char, 256> buffer{};
        while (text.size() < length) {
            pollfd entry{tty.Get(), POLLIN, 0};
            if (poll(&entry, 1, 10000) != 1) {
                break;
            }
            const ssize_t count = read(tty.Get(), buffer.data(), buffer.size());
            if (count <= 0) {
                break;
            }
            text.append(buffer.data(), static_cast<std::size_t>(count));
        }
        return text;
    }

    /// Reads from the port until `end` arrives.
    std::string ReadPortUntil(const std::string& end) const {
        std::string text;
        WaitFor([this, &text, &end] {
            text += port->Read();
            return text.ends_with(end);
        });
        return text;
    }

    std::unique_ptr<PtyPort> port;
    FileDescriptor tty;
};

TEST_F(PtyPortTest, CarriesBytesBothWaysUnchanged) {
    Open(PtyPort::Start::Raw);
    const std::string text("a\0\r\n\x03\xff", 6);
    port->Send(text);
    EXPECT_EQ(ReadTty(text.size()), text);
    ASSERT_EQ(write(tty.Get(), text.data(), text.size()), 6);
    EXPECT_EQ(ReadPortUntil("\xff"), text);
}

TEST_F(PtyPortTest, ReadReturnsNothingWithoutInput) {
    Open(PtyPort::Start::Raw);
    EXPECT_EQ(port->Read(), "");
}

TEST_F(PtyPortTest, StartsRawOrCooked) {
    Open(PtyPort::Start::Raw);
    EXPECT_TRUE(port->IsRaw());
    Open(PtyPort::Start::Cooked);
    EXPECT_FALSE(port->IsRaw());
    SetRaw();
    EXPECT_TRUE(port->IsRaw());
}

TEST_F(PtyPortTest, KeepsSettingsWithoutAClient) {
    Open(PtyPort::Start::Cooked);
    SetRaw();
    tty.Close();
    EXPECT_TRUE(port->IsRaw());
}

TEST_F(PtyPortTest, ACookedTtyEchoesOnlyWholePackets) {
    Open(PtyPort::Start::Cooked);
    port->Send(std::string(63, 'x'));
    EXPECT_FALSE(port->WaitsForRoom());
    port->Send("yz");
    EXPECT_EQ(ReadPortUntil("y"), std::string(63, 'x') + "y");
    SetRaw();
    port->Send("!\n");
    EXPECT_TRUE(ReadTty(67).ends_with("yz!\n")) << "the rest follows in raw mode";
}

TEST_F(PtyPortTest, AStalledPortBlocksWrites) {
    Open(PtyPort::Start::Raw);
    EXPECT_TRUE(HasRoom());
    port->SetStalled(true);
    EXPECT_TRUE(port->IsStalled());
    EXPECT_FALSE(HasRoom());
    port->Send("still sent");
    EXPECT_EQ(ReadTty(10), "still sent");
    port->SetStalled(false);
    EXPECT_TRUE(HasRoom());
}

TEST_F(PtyPortTest, KeepsTextForLaterUpToALimit) {
    Open(PtyPort::Start::Raw);
    const std::string text(1000, 'x');
    ASSERT_TRUE(WaitFor([this, &text] {
        port->Send(text);
        return port->WaitsForRoom();
    }));
    for (int count = 0; count < 10; ++count) {
        port->Send(text);
    }
    std::size_t received = 0;
    ASSERT_TRUE(WaitFor([this, &received] {
        received += ReadTty(1).size();
        port->Flush();
        return !port->WaitsForRoom();
    }));
    port->Send("!");
    EXPECT_TRUE(WaitFor([this] { return ReadTty(1).ends_with('!'); }));
}

TEST_F(PtyPortTest, HangsTheTtyUpAtTheEnd) {
    Open(PtyPort::Start::Raw);
    port.reset();
    std::array<char, 8> buffer{};
    EXPECT_EQ(read(tty.Get(), buffer.data(), buffer.size()), 0);
    EXPECT_EQ(write(tty.Get(), "x", 1), -1);
    EXPECT_EQ(errno, EIO);
    termios settings{};
    EXPECT_EQ(tcgetattr(tty.Get(), &settings), -1);
    EXPECT_EQ(errno, EIO);
}

TEST_F(PtyPortTest, TheHangUpEndsABlockedRead) {
    Open(PtyPort::Start::Raw);
    auto blocked = std::async(std::launch::async, [this] {
        std::array<char, 8> buffer{};
        return read(tty.Get(), buffer.data(), buffer.size());
    });
    EXPECT_EQ(blocked.wait_for(milliseconds(50)), std::future_status::timeout);
    port.reset();
    ASSERT_EQ(blocked.wait_for(support::kPatience), std::future_status::ready);
    EXPECT_LE(blocked.get(), 0);
}

}  // namespace
}  // namespace simulator
