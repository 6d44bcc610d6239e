#pragma once

#include "simulator/FileDescriptor.h"
#include "simulator/Port.h"
#include "simulator/TextTools.h"
#include "simulator/usb/UsbDevice.h"

namespace simulator {

/// A port of the kernel's USB: connects the USB device of a master with a virtual host controller.
///
/// The kernel unplugs the device when the object, or the process, ends.
class UsbPort final : public Port {
public:
    /// @param socket stream socket to the controller, non-blocking
    /// @param print called if the controller's messages are invalid, which ends the connection
    UsbPort(FileDescriptor socket, UsbFaults& faults, Printer print);

    int Descriptor() const override { return socket.Get(); }
    short PollEvents() const override;
    std::optional<TimePoint> NextDue() const override { return device.NextDue(); }
    bool IsConnected() const override { return connected; }

    std::string Read() override;
    void Send(std::string_view text) override;
    void Flush() override;
    bool WaitsForRoom() const override { return !output.empty(); }

    /// While stalled, the kernel's driver takes 16 writes of a client; then they block.
    void SetStalled(bool on) override { device.SetStalled(on); }
    bool IsStalled() const override { return device.IsStalled(); }

private:
    void ReadMessages(TimePoint now);

    FileDescriptor socket;
    Printer print;
    UsbDevice device;
    usbip::MessageReader reader;
    std::string output;  // messages for the controller
    bool connected = true;
};

}  // namespace simulator
