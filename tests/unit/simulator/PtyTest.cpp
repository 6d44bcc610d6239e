#include "simulator/Pty.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <future>
#include <memory>

#include "tests/support/WaitFor.h"

namespace simulator {
namespace {

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

TEST_F(PtyTest, IsATtyWithANode) {
    EXPECT_NE(isatty(tty.Get()), 0);
    std::array<char, 64> name{};
    ASSERT_EQ(ttyname_r(tty.Get(), name.data(), name.size()), 0);
    EXPECT_EQ(pty->NodePath(), name.data());
}

TEST_F(PtyTest, SettingsOutliveTheirUsers) {
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

TEST_F(PtyTest, IsHungUpInTheEnd) {
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

}  // namespace
}  // namespace simulator
