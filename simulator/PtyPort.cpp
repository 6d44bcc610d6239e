#include "simulator/PtyPort.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <system_error>

namespace simulator {

namespace {

constexpr std::size_t kUsbPacketLength = 64;
constexpr std::size_t kUnsentLimit = 4096;

/// @throws std::system_error for -1
int Checked(int result, const char* what) {
    if (result == -1) {
        throw std::system_error(errno, std::generic_category(), what);
    }
    return result;
}

}  // namespace

PtyPort::PtyPort(Start start)
    : master(Checked(posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC), "posix_openpt")),
      packetsOnly(start == Start::Cooked) {
    Checked(grantpt(master.Get()), "grantpt");
    Checked(unlockpt(master.Get()), "unlockpt");
    std::array<char, 64> name{};
    if (const int error = ptsname_r(master.Get(), name.data(), name.size()); error != 0) {
        throw std::system_error(error, std::generic_category(), "ptsname_r");
    }
    nodePath = name.data();
    slave = FileDescriptor(
        Checked(open(nodePath.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC), "open of a pty"));
    if (start == Start::Raw) {
        termios settings{};
        Checked(tcgetattr(slave.Get(), &settings), "tcgetattr");
        cfmakeraw(&settings);
        Checked(tcsetattr(slave.Get(), TCSANOW, &settings), "tcsetattr");
    }
}

/// The slave is hung up before the master closes, so that a blocked read ends with 0 as it does on
/// a tty that was pulled; closing alone ends it with EIO. Only root may do that; for others the
/// reads that come after are the first to return 0.
PtyPort::~PtyPort() {
    ioctl(slave.Get(), TIOCVHANGUP);
}

std::string PtyPort::Read() {
    std::array<char, 4096> buffer{};
    const ssize_t count = read(master.Get(), buffer.data(), buffer.size());
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
    const ssize_t result = write(master.Get(), unsent.data(), length);
    const std::size_t count = result > 0 ? static_cast<std::size_t>(result) : 0U;
    unsent.erase(0, count);
    waitsForRoom = count < length;
}

void PtyPort::SetStalled(bool on) {
    if (on != stalled) {
        stalled = on;
        ioctl(slave.Get(), TCXONC, on ? TCOOFF : TCOON);
    }
}

bool PtyPort::IsRaw() const {
    termios settings{};
    return tcgetattr(slave.Get(), &settings) == 0 && (settings.c_lflag & (ECHO | ICANON)) == 0;
}

}  // namespace simulator
