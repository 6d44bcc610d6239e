#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace simulator {

/// The ports of the kernel's virtual host controllers (vhci-hcd), in sysfs.
class VirtualPorts {
public:
    /// @param controller folder of the first controller, which has the files of all
    explicit VirtualPorts(std::filesystem::path controller) : controller(std::move(controller)) {}

    /// Those of this host. Loads the kernel's module if necessary.
    /// @throws std::runtime_error without root's rights, or if the kernel has no such controllers
    static VirtualPorts OfHost();

    /// False if the kernel has no such controllers, or their module is not loaded.
    bool ArePresent() const;

    struct State {
        unsigned port = 0;
        bool free = false;
        std::string device;  ///< name in /sys/bus/usb/devices, "3-1"; of a free port meaningless
    };

    /// The ports for full-speed devices, in their order.
    std::vector<State> States() const;

    bool IsFree(unsigned port) const;

    /// Plugs in a full-speed device that is played behind `socket`, one end of a stream socket
    /// pair. The kernel keeps it open.
    /// @throws std::system_error if the port is in use or the kernel refuses
    void Attach(unsigned port, int socket, unsigned deviceId) const;

private:
    std::filesystem::path controller;
};

}  // namespace simulator
