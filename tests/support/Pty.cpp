#include "tests/support/Pty.h"

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>

namespace support {

Pty::Pty(Settings settings) {
    termios raw{};
    ::cfmakeraw(&raw);
    raw.c_cflag |= CREAD;
    std::array<char, 64> name;
    const termios* const wanted = settings == Settings::kRaw ? &raw : nullptr;
    if (::openpty(&otherEnd, &tty, name.data(), wanted, nullptr) != 0) {
        throw std::runtime_error("no pseudo-terminal");
    }
    kernelPath = name.data();
    ::fcntl(otherEnd, F_SETFL, O_NONBLOCK);
    ::fcntl(otherEnd, F_SETFD, FD_CLOEXEC);
    ::fcntl(tty, F_SETFD, FD_CLOEXEC);

    std::string pattern = std::filesystem::temp_directory_path() / "tty-XXXXXX";
    folder = ::mkdtemp(pattern.data());
    path = folder + "/ttyACM0";
    RestorePath();
}

Pty::~Pty() {
    HangUp();
    std::filesystem::remove(folder);
}

void Pty::Send(std::string_view text) const {
    if (::write(otherEnd, text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
        throw std::runtime_error("the pseudo-terminal does not take the text");
    }
}

std::string Pty::Receive(std::size_t size, std::chrono::milliseconds limit) const {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    std::string text;
    std::array<char, 4096> buffer;
    while (text.size() < size) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        pollfd end{.fd = otherEnd, .events = POLLIN, .revents = 0};
        if (left.count() <= 0 || ::poll(&end, 1, static_cast<int>(left.count())) <= 0) {
            break;
        }
        const ssize_t count = ::read(otherEnd, buffer.data(), buffer.size());
        if (count <= 0) {
            break;
        }
        text.append(buffer.data(), static_cast<std::size_t>(count));
    }
    return text;
}

std::size_t Pty::Pending() const {
    int count = 0;
    ::ioctl(tty, FIONREAD, &count);
    return static_cast<std::size_t>(count);
}

termios Pty::GetSettings() const {
    termios settings{};
    ::tcgetattr(tty, &settings);
    return settings;
}

void Pty::SetSettings(const termios& settings) const {
    ::tcsetattr(tty, TCSANOW, &settings);
}

void Pty::Stall(bool on) const {
    ::tcflow(tty, on ? TCOOFF : TCOON);  // NOLINT(concurrency-mt-unsafe): on this tty it is
}

void Pty::RemovePath() const {
    ::unlink(path.c_str());
}

void Pty::RestorePath() const {
    std::filesystem::create_symlink(kernelPath, path);
}

void Pty::HangUp() {
    RemovePath();
    if (otherEnd != -1) {
        ::close(tty);
        ::close(otherEnd);
        tty = otherEnd = -1;
    }
}

}  // namespace support
