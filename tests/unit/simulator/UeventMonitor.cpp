#include "tests/unit/simulator/UeventMonitor.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <array>
#include <stdexcept>

namespace simulator {

UeventMonitor::UeventMonitor(const std::filesystem::path& folder, const std::string& name)
    : descriptor(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string path = folder / name;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    if (bind(descriptor.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        throw std::runtime_error("bind " + path);
    }
}

std::optional<std::string> UeventMonitor::Receive() const {
    pollfd entry{descriptor.Get(), POLLIN, 0};
    if (poll(&entry, 1, 10000) != 1) {
        return std::nullopt;
    }
    std::array<char, 4096> buffer{};
    const ssize_t count = recv(descriptor.Get(), buffer.data(), buffer.size(), 0);
    return std::string(buffer.data(), count > 0 ? static_cast<std::size_t>(count) : 0U);
}

bool UeventMonitor::HasMessage() const {
    pollfd entry{descriptor.Get(), POLLIN, 0};
    return poll(&entry, 1, 0) == 1;
}

std::string Property(const std::string& message, const std::string& name) {
    const std::string start = std::string(1, '\0') + name + "=";
    const auto place = message.find(start);
    return place == std::string::npos ? "" : message.c_str() + place + start.size();
}

}  // namespace simulator
