#include "simulator/MasterTty.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <system_error>

#include "simulator/Pty.h"

namespace simulator {
namespace {

class MasterTtyTest : public testing::Test {
protected:
    termios Settings() const {
        termios settings{};
        tcgetattr(other.Get(), &settings);
        return settings;
    }

    bool IsExclusive() const {
        int exclusive = 0;
        ioctl(other.Get(), TIOCGEXCL, &exclusive);
        return exclusive != 0;
    }

    static std::string ReasonAgainst(const std::string& path) {
        try {
            const MasterTty tty(path);
        } catch (const std::system_error& error) {
            return error.what();
        }
        return "none";
    }

    Pty device;
    FileDescriptor other = device.OpenTty();
};

TEST_F(MasterTtyTest, IsRawAndItsOwnersAloneAndLeftAsItWas) {
    const termios before = Settings();
    ASSERT_NE(before.c_lflag & ICANON, 0U);
    {
        const MasterTty tty(device.NodePath());
        const termios settings = Settings();
        EXPECT_EQ(settings.c_lflag & (ICANON | ECHO | ISIG | IEXTEN), 0U);
        EXPECT_EQ(settings.c_iflag & (ICRNL | IXON | ISTRIP), 0U);
        EXPECT_EQ(settings.c_oflag & OPOST, 0U);
        EXPECT_EQ(cfgetospeed(&settings), B115200);
        EXPECT_TRUE(IsExclusive());
        EXPECT_NE(fcntl(tty.Descriptor(), F_GETFL) & O_NONBLOCK, 0);
    }
    EXPECT_FALSE(IsExclusive());
    const termios after = Settings();
    EXPECT_EQ(after.c_lflag, before.c_lflag);
    EXPECT_EQ(after.c_iflag, before.c_iflag);
    EXPECT_EQ(after.c_oflag, before.c_oflag);
    EXPECT_EQ(cfgetospeed(&after), cfgetospeed(&before));
}

TEST_F(MasterTtyTest, SaysWhatItCannotTap) {
    EXPECT_EQ(ReasonAgainst("/dev/none"), "cannot tap /dev/none: No such file or directory");
    EXPECT_EQ(ReasonAgainst("/dev/null"), "cannot tap /dev/null: Inappropriate ioctl for device");
}

TEST_F(MasterTtyTest, IsTappedOnceAtATime) {
    {
        const MasterTty tty(device.NodePath());
        EXPECT_EQ(ReasonAgainst(device.NodePath()),
                  "cannot tap " + device.NodePath() + ": Device or resource busy");
        EXPECT_TRUE(IsExclusive());
    }
    EXPECT_EQ(ReasonAgainst(device.NodePath()), "none");
}

}  // namespace
}  // namespace simulator
