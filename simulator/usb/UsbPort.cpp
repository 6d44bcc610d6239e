#include "simulator/usb/UsbPort.h"

#include <poll.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <utility>

namespace simulator {

UsbPort::UsbPort(FileDescriptor socket, UsbFaults& faults, Printer print)
    : socket(std::move(socket)), print(std::move(print)), device(faults) {}

short UsbPort::PollEvents() const {
    return output.empty() ? POLLIN : POLLOUT;
}

std::string UsbPort::Read() {
    try {
        if (output.empty()) {  // the kernel has taken all replies, so they do not pile up
            ReadMessages(Clock::now());
        }
    } catch (const usbip::ProtocolError& error) {
        connected = false;
        print(std::string("usb: unplugging a device: invalid message from the kernel: ") +
              error.what());
    }
    std::string received = device.TakeReceived();
    Flush();
    return received;
}

/// Reads at most 64 KiB, so that one device does not delay the others.
void UsbPort::ReadMessages(TimePoint now) {
    std::array<char, 65536> buffer{};
    const ssize_t count = recv(socket.Get(), buffer.data(), buffer.size(), MSG_DONTWAIT);
    if (count <= 0) {
        connected = count == -1 && (errno == EAGAIN || errno == EINTR);
        return;
    }
    for (const auto& message : reader.Add({buffer.data(), static_cast<std::size_t>(count)})) {
        device.Handle(message, now);
    }
}

void UsbPort::Send(std::string_view text) {
    device.Send(text);
    Flush();
}

void UsbPort::Flush() {
    output += device.TakeReplies(Clock::now());
    if (output.empty()) {
        return;
    }
    const ssize_t count =
        send(socket.Get(), output.data(), output.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    if (count > 0) {
        output.erase(0, static_cast<std::size_t>(count));
    } else if (count == -1 && errno != EAGAIN && errno != EINTR) {
        connected = false;
        output.clear();
    }
}

}  // namespace simulator
