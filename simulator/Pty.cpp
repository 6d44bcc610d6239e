#include "simulator/Pty.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <system_error>

namespace simulator {

namespace {

constexpr int kTtyFlags = O_RDWR | O_NOCTTY | O_CLOEXEC;
constexpr std::size_t kUsbPacketLength = 64;
constexpr std::size_t kUnsentLimit = 4096;

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

/// Hangs the tty up before the device closes, so that a blocked read returns 0, as on an unplugged
/// tty; closing alone makes it fail with EIO. Only root may do this; for other users only later
/// reads return 0.
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

PtyPort::PtyPort(Start start) : tty(pty.OpenTty()), packetsOnly(start == Start::Cooked) {
    if (start == Start::Raw) {
        pty.SetRaw();
    }
}

short PtyPort::PollEvents() const {
    return static_cast<short>((stalled ? 0 : POLLIN) | (waitsForRoom ? POLLOUT : 0));
}

std::string PtyPort::Read() {
    if (stalled) {
        return {};
    }
    std::array<char, 4096> buffer{};
    const ssize_t count = read(pty.Descriptor(), buffer.data(), buffer.size());
    return {buffer.data(), count > 0 ? static_cast<std::size_t>(count) : 0U};
}

void PtyPort::Send(std::string_view text) {
    if (unsent.size() + text.size() <= kUnsentLimit) {
        unsent += text;
    }
    Flush();
}

void PtyPort::Flush() {
    packetsOnly = packetsOnly && !IsRaw();
    const std::size_t length =
        packetsOnly ? unsent.size() - unsent.size() % kUsbPacketLength : unsent.size();
    const ssize_t result = write(pty.Descriptor(), unsent.data(), length);
    const std::size_t count = result > 0 ? static_cast<std::size_t>(result) : 0U;
    unsent.erase(0, count);
    waitsForRoom = count < length;
}

void PtyPort::SetStalled(bool on) {
    if (on != stalled) {
        stalled = on;
        ioctl(tty.Get(), TCXONC, on ? TCOOFF : TCOON);
    }
}

bool PtyPort::IsRaw() const {
    termios settings{};
    return tcgetattr(tty.Get(), &settings) == 0 && (settings.c_lflag & (ECHO | ICANON)) == 0;
}

}  // namespace simulator
