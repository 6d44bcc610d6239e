#include "bench/OpenTty.h"

#include <fcntl.h>
#include <termios.h>

#include <cerrno>
#include <system_error>

namespace bench {

simulator::FileDescriptor OpenTty(const std::string& path) {
    simulator::FileDescriptor tty(open(path.c_str(), O_RDWR | O_NOCTTY));
    termios settings{};
    if (tty.Get() == -1 || tcgetattr(tty.Get(), &settings) == -1) {
        throw std::system_error(errno, std::generic_category(), path);
    }
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

}  // namespace bench
