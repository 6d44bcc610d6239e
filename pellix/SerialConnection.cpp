#include "pellix/SerialConnection.h"

#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <exception>

#include "common/LogLine.h"

namespace pellix {

namespace {

constexpr std::chrono::seconds kLockTimeout{1};
// Longer than kLockTimeout, so that other writers to a hung device time out waiting for the lock.
constexpr std::chrono::milliseconds kRoomTimeout{3000};
constexpr cc_t kReadTimeout = 10;  // tenths of a second
constexpr std::size_t kReadSize = 4096;

/// Waits until the tty accepts bytes. A hung device accepts none, and a write to its tty would
/// block until it is unplugged.
bool HasRoom(int fd) {
    const auto deadline = std::chrono::steady_clock::now() + kRoomTimeout;
    for (;;) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        pollfd tty{.fd = fd, .events = POLLOUT, .revents = 0};
        const int ready = ::poll(&tty, 1, left.count() > 0 ? static_cast<int>(left.count()) : 0);
        if (ready >= 0 || errno != EINTR) {
            return ready > 0;  // also true after a hang-up; the write then fails at once
        }
    }
}

void SetRawMode(termios& settings) {
    settings.c_iflag = IGNBRK | IGNPAR;
    settings.c_oflag = 0;
    settings.c_cflag = B115200 | CS8 | CLOCAL | CREAD;
    settings.c_lflag = 0;
    settings.c_cc[VTIME] = kReadTimeout;
    settings.c_cc[VMIN] = 0;
}

// On purpose: throws a pointer, because the callers catch this type and delete the object.
[[noreturn]] void ThrowOpenFailure() {
    throw new std::exception;  // NOLINT(misc-throw-by-value-catch-by-reference)
}

}  // namespace

SerialConnection::SerialConnection(const std::string& devicePath) : devicePath(devicePath) {
    Open();
}

SerialConnection::~SerialConnection() {
    Close();
}

void SerialConnection::Open() {
    if (isOpen) {
        LogLine() << "SerialConnection: " << devicePath << " already open";
        return;
    }
    DropHalfOpened();
    LogLine() << "SerialConnection: Opening device " << devicePath;
    const int opened = ::open(devicePath.c_str(), O_RDWR | O_NOCTTY);
    if (opened == -1) {
        LogLine() << "SerialConnection: Open call failed";
        ThrowOpenFailure();
    }
    fd = opened;
    LogLine() << "SerialConnection: Initialize device succeeded";
    FD_ZERO(&readSet);
    if (opened < FD_SETSIZE) {  // a larger descriptor does not fit into the set
        FD_SET(opened, &readSet);
    }

    termios settings{};
    if (::tcgetattr(opened, &settings) != 0) {
        std::perror("terminal: tcgetattr() failed");
        // On purpose: leaves the descriptor open, because IsOpen() reports the tty as not open and
        // the next Open() closes it.
        halfOpened = true;
        ThrowOpenFailure();
    }
    SetRawMode(settings);
    ::tcflush(opened, TCIOFLUSH);
    ::tcsetattr(opened, TCSANOW, &settings);
    isOpen = true;
}

/// Otherwise repeated attempts to open a path that is not a tty would use up all descriptors.
void SerialConnection::DropHalfOpened() {
    if (halfOpened) {
        ::close(fd);
        halfOpened = false;
    }
}

void SerialConnection::Close() {
    if (!isOpen) {
        LogLine() << "SerialConnection: " << devicePath << " not open";
        return;
    }
    ::close(fd);
    isOpen = false;
    LogLine() << "SerialConnection: Closed device " << devicePath;
}

std::string SerialConnection::Read() {
    if (!isOpen) {
        return {};  // `fd` may belong to a client's socket by now
    }
    std::array<char, kReadSize + 1> buffer{};  // one more byte: a full read needs its NUL, too
    const ssize_t count = ::read(fd, buffer.data(), kReadSize);
    if (count == 0) {
        LogLine() << "Input timeout";
    }
    return buffer.data();
}

int SerialConnection::Write(const std::string& text) {
    std::unique_lock<std::timed_mutex> lock(mutex, kLockTimeout);
    if (!lock) {
        LogLine() << "Timeout writing to serial connection";
        return -1;
    }
    const ssize_t count = WriteOnce(text);
    lock.unlock();
    if (count != static_cast<ssize_t>(text.size())) {
        LogLine() << "Failed to write to serial connection: " << count;
        return -1;
    }
    return 0;
}

ssize_t SerialConnection::WriteOnce(const std::string& text) const {
    if (!isOpen || !HasRoom(fd)) {
        return -1;
    }
    return ::write(fd, text.data(), text.size());
}

void SerialConnection::Reopen() {
    LogLine() << "SerialConnection: Reopening";
    const std::unique_lock<std::timed_mutex> lock(mutex, kLockTimeout);
    if (!lock) {
        LogLine() << "SerialConnection: Timeout reopening";
        return;
    }
    Close();
    Open();
}

}  // namespace pellix
