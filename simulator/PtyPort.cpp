#include "simulator/PtyPort.h"

#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <array>

namespace simulator {

namespace {

constexpr std::size_t kUsbPacketLength = 64;
constexpr std::size_t kUnsentLimit = 4096;

}  // namespace

PtyPort::PtyPort(Start start) : tty(pty.OpenTty()), packetsOnly(start == Start::Cooked) {
    if (start == Start::Raw) {
        pty.SetRaw();
    }
}

std::string PtyPort::Read() {
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
