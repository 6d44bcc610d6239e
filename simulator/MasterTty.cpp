#include "simulator/MasterTty.h"

#include <fcntl.h>
#include <sys/ioctl.h>

#include <cerrno>
#include <system_error>

namespace simulator {

MasterTty::MasterTty(const std::string& path)
    : tty(open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC)) {
    if (tty.Get() == -1 || tcgetattr(tty.Get(), &settingsBefore) == -1) {
        throw std::system_error(errno, std::generic_category(), "cannot tap " + path);
    }
    // The kernel tells everybody but root, who gets half of what the master says.
    if (int exclusive = 0; ioctl(tty.Get(), TIOCGEXCL, &exclusive) == 0 && exclusive != 0) {
        throw std::system_error(EBUSY, std::generic_category(), "cannot tap " + path);
    }
    ioctl(tty.Get(), TIOCEXCL);
    termios settings = settingsBefore;
    cfmakeraw(&settings);
    cfsetspeed(&settings, B115200);
    settings.c_cflag |= CLOCAL | CREAD;
    settings.c_cc[VMIN] = 1;
    settings.c_cc[VTIME] = 0;
    tcsetattr(tty.Get(), TCSANOW, &settings);
}

MasterTty::~MasterTty() {
    tcsetattr(tty.Get(), TCSANOW, &settingsBefore);
    ioctl(tty.Get(), TIOCNXCL);
}

}  // namespace simulator
