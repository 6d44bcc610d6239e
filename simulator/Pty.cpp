#include "simulator/Pty.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <termios.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <system_error>

namespace simulator {

namespace {

constexpr int kTtyFlags = O_RDWR | O_NOCTTY | O_CLOEXEC;

/// @throws std::system_error for -1
int Checked(int result, const char* what) {
    if (result == -1) {
        throw std::system_error(errno, std::generic_category(), what);
    }
    return result;
}

}  // namespace

Pty::Pty()
    : device(Checked(posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC), "posix_openpt")) {
    Checked(grantpt(device.Get()), "grantpt");
    Checked(unlockpt(device.Get()), "unlockpt");
    std::array<char, 64> name{};
    if (const int error = ptsname_r(device.Get(), name.data(), name.size()); error != 0) {
        throw std::system_error(error, std::generic_category(), "ptsname_r");
    }
    nodePath = name.data();
}

/// The tty is hung up before the device's end closes, so that a blocked read ends with 0 as it does
/// on a tty that was pulled; closing alone ends it with EIO. Only root may do that; for others the
/// reads that come after are the first to return 0.
Pty::~Pty() {
    const FileDescriptor tty(ioctl(device.Get(), TIOCGPTPEER, kTtyFlags));
    ioctl(tty.Get(), TIOCVHANGUP);
}

FileDescriptor Pty::OpenTty() const {
    return FileDescriptor(Checked(ioctl(device.Get(), TIOCGPTPEER, kTtyFlags), "open of a pty"));
}

void Pty::SetRaw() const {
    const FileDescriptor tty = OpenTty();
    termios settings{};
    Checked(tcgetattr(tty.Get(), &settings), "tcgetattr");
    cfmakeraw(&settings);
    Checked(tcsetattr(tty.Get(), TCSANOW, &settings), "tcsetattr");
}

}  // namespace simulator
