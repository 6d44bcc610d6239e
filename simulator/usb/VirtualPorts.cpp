#include "simulator/usb/VirtualPorts.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <utility>

#include "simulator/FileDescriptor.h"

namespace simulator {

namespace {

constexpr unsigned kFreeState = 4;
constexpr unsigned kFullSpeed = 2;

/// Reads the table of a controller: "hub port sta spd dev sockfd local_busid".
void ReadTable(std::istream& table, std::vector<VirtualPorts::State>& states) {
    std::string line;
    while (std::getline(table, line)) {
        std::istringstream fields(line);
        std::string hub;
        std::string ignored;
        unsigned state = 0;
        VirtualPorts::State entry;
        if (fields >> hub && hub == "hs" &&
            fields >> entry.port >> state >> ignored >> ignored >> ignored >> entry.device) {
            entry.free = state == kFreeState;
            states.push_back(entry);
        }
    }
}

/// Loads the kernel's module if necessary.
/// @return false if there are no controllers even then
bool ProvideControllers(const VirtualPorts& ports) {
    if (ports.ArePresent()) {
        return true;
    }
    // By its whole path, as "su" leaves /sbin out of PATH.
    std::array<char*, 4> arguments{const_cast<char*>("/sbin/modprobe"), const_cast<char*>("-q"),
                                   const_cast<char*>("vhci-hcd"), nullptr};
    pid_t child = 0;
    if (posix_spawn(&child, arguments[0], nullptr, nullptr, arguments.data(), environ) == 0) {
        waitpid(child, nullptr, 0);
    }
    return ports.ArePresent();
}

}  // namespace

VirtualPorts VirtualPorts::OfHost() {
    if (geteuid() != 0) {
        throw std::runtime_error(
            "--usb needs root and the kernel module vhci-hcd: run \"modprobe vhci-hcd\" and "
            "pellix-sim as root");
    }
    VirtualPorts ports("/sys/devices/platform/vhci_hcd.0");
    if (!ProvideControllers(ports)) {
        throw std::runtime_error(
            "--usb: this kernel has no module vhci-hcd: install the package linux-image-amd64 and "
            "boot it (containers and cloud kernels have no such module), or start the daemon in a "
            "cell without --usb: pellix-sim --gripper HVA -- TavrikDaemon");
    }
    return ports;
}

bool VirtualPorts::ArePresent() const {
    return std::filesystem::exists(controller / "attach");
}

std::vector<VirtualPorts::State> VirtualPorts::States() const {
    std::vector<State> states;
    std::ifstream table(controller / "status");
    for (unsigned number = 1; table; ++number) {
        ReadTable(table, states);
        table = std::ifstream(controller / ("status." + std::to_string(number)));
    }
    return states;
}

bool VirtualPorts::IsFree(unsigned port) const {
    const auto states = States();
    const auto place = std::ranges::find(states, port, &State::port);
    return place != states.end() && place->free;
}

void VirtualPorts::Attach(unsigned port, int socket, unsigned deviceId) const {
    const std::string text = std::to_string(port) + " " + std::to_string(socket) + " " +
                             std::to_string(deviceId) + " " + std::to_string(kFullSpeed);
    const std::string failure = "cannot attach a USB device to port " + std::to_string(port);
    const FileDescriptor file(
        Checked(open((controller / "attach").c_str(), O_WRONLY | O_CLOEXEC), failure));
    Checked(write(file.Get(), text.data(), text.size()), failure);
}

}  // namespace simulator
