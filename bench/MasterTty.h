#pragma once

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <string>
#include <string_view>

#include "simulator/FileDescriptor.h"

namespace bench {

/// Opens a master's tty with the settings that the daemon gives it: raw, and a read waits at most
/// 1 s for the first byte. What came before is dropped.
/// @throws std::system_error
inline simulator::FileDescriptor OpenTty(const std::string& path) {
    simulator::FileDescriptor tty(simulator::Checked(open(path.c_str(), O_RDWR | O_NOCTTY), path));
    termios settings{};
    simulator::Checked(tcgetattr(tty.Get(), &settings), path);
    settings.c_iflag = IGNBRK | IGNPAR;
    settings.c_oflag = 0;
    settings.c_cflag = B115200 | CS8 | CLOCAL | CREAD;
    settings.c_lflag = 0;
    constexpr cc_t kReadTimeout = 10;  // tenths of a second
    settings.c_cc[VTIME] = kReadTimeout;
    settings.c_cc[VMIN] = 0;
    tcflush(tty.Get(), TCIOFLUSH);
    tcsetattr(tty.Get(), TCSANOW, &settings);
    return tty;
}

/// Reads once and takes whole lines off the front of `text`, which keeps the rest for the next
/// read.
/// @param handle called for every line, which it gets without its line feed
/// @return false when nothing came
template <typename Handle>
bool ReadLines(const simulator::FileDescriptor& tty, std::string& text, const Handle& handle) {
    std::array<char, 4096> buffer;
    const ssize_t count = read(tty.Get(), buffer.data(), buffer.size());
    if (count <= 0) {
        return false;
    }
    text.append(buffer.data(), static_cast<std::size_t>(count));
    std::size_t start = 0;
    for (std::size_t end = text.find('\n'); end != std::string::npos;
         end = text.find('\n', start)) {
        handle(std::string_view(text).substr(start, end - start));
        start = end + 1;
    }
    text.erase(0, start);
    return true;
}

}  // namespace bench
