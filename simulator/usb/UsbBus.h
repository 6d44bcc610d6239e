#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <string>

#include "simulator/Bus.h"
#include "simulator/FileDescriptor.h"
#include "simulator/TextTools.h"
#include "simulator/usb/VirtualPorts.h"

namespace simulator {

/// Plugs masters into the USB of the running kernel, through its virtual host controllers. All
/// programs of the host see them. The kernel unplugs them when this process ends, however it ends.
class UsbBus final : public Bus {
public:
    /// @param devices folder with the USB devices that the kernel has accepted
    UsbBus(Printer print, VirtualPorts ports,
           std::filesystem::path devices = "/sys/bus/usb/devices");

    std::unique_ptr<Port> CreatePort(std::size_t number, Station& station) override;

    /// Returns before the kernel has asked the device for its descriptors.
    void Attach(std::size_t number) override;
    void PrepareHangUp(std::size_t number, bool reported) override;

    /// Waits until the device has left sysfs.
    /// @throws std::runtime_error if it has not within 5 s
    void Detach(std::size_t number) override;
    void SendEvent(std::size_t number, const std::string& action) override;

    /// May take as long as the kernel waits for a device that does not answer: 15 s.
    void Reset(std::size_t number) override;
    bool StartsCooked() const override { return true; }

private:
    struct Place {
        std::optional<unsigned> port;
        bool changePort = false;
        FileDescriptor kernelEnd;  // until the kernel has it
        std::string device;        // name in sysfs while it is being unplugged
    };

    unsigned ChoosePort(std::size_t number);
    void AwaitRemoval(Place& place) const;
    std::string DeviceName(std::size_t number);

    Printer print;
    VirtualPorts ports;
    std::filesystem::path devices;
    std::map<std::size_t, Place> places;
};

}  // namespace simulator
