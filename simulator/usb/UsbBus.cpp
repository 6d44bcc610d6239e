#include "simulator/usb/UsbBus.h"

#include <fcntl.h>
#include <linux/usbdevice_fs.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <fstream>
#include <functional>
#include <stdexcept>
#include <thread>
#include <utility>

#include "simulator/Cell.h"
#include "simulator/usb/UsbPort.h"

namespace simulator {

namespace fs = std::filesystem;

namespace {

constexpr std::chrono::seconds kPatience{5};

/// @return false if it was not so in time
bool WaitUntil(const std::function<bool()>& isDone) {
    constexpr std::chrono::milliseconds kPause{2};
    const TimePoint end = Clock::now() + kPatience;
    while (!isDone()) {
        if (Clock::now() >= end) {
            return false;
        }
        std::this_thread::sleep_for(kPause);
    }
    return true;
}

}  // namespace

UsbBus::UsbBus(Printer print, VirtualPorts ports, fs::path devices)
    : print(std::move(print)), ports(std::move(ports)), devices(std::move(devices)) {}

std::unique_ptr<Port> UsbBus::CreatePort(std::size_t number, Station& station) {
    std::array<int, 2> ends{};
    Checked(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()), "socketpair");
    FileDescriptor ownEnd(ends[0]);
    Place& place = places[number];
    place.kernelEnd = FileDescriptor(ends[1]);
    UsbFaults& faults = *station.usb;
    place.changePort = std::exchange(faults.otherPort, false);
    faults.haltedIn = false;
    faults.haltedOut = false;
    return std::make_unique<UsbPort>(std::move(ownEnd), faults, print);
}

/// The port of last time, or the one with the master's number, if it is free; otherwise the first
/// that is free and not another master's.
unsigned UsbBus::ChoosePort(std::size_t number) {
    Place& place = places[number];
    if (place.port && !place.changePort) {
        AwaitRemoval(place);
        return *place.port;
    }
    auto states = ports.States();
    if (number < states.size()) {
        std::rotate(states.begin(), states.begin() + static_cast<std::ptrdiff_t>(number),
                    states.end());
    }
    const auto isTaken = [this](unsigned port) {
        return std::ranges::any_of(places,
                                   [port](const auto& each) { return each.second.port == port; });
    };
    for (const auto& state : states) {
        if (state.free && !isTaken(state.port)) {
            return state.port;
        }
    }
    throw std::runtime_error("no USB port of vhci-hcd is free");
}

void UsbBus::Attach(std::size_t number) {
    Place& place = places[number];
    const FileDescriptor kernelEnd = std::move(place.kernelEnd);
    place.port = ChoosePort(number);
    ports.Attach(*place.port, kernelEnd.Get(), static_cast<unsigned>(number) + 1);
}

/// @return the name in sysfs; empty if the kernel has not accepted the device
std::string UsbBus::DeviceName(std::size_t number) {
    for (const auto& state : ports.States()) {
        if (places[number].port == state.port && !state.free) {
            return fs::exists(devices / state.device) ? state.device : "";
        }
    }
    return "";
}

void UsbBus::PrepareHangUp(std::size_t number, bool reported) {
    if (!reported) {
        throw std::runtime_error("udev reports every removal from USB: use unplug");
    }
    // After an unplug that timed out, the port may have no device: the earlier name stays.
    if (auto device = DeviceName(number); !device.empty()) {
        places[number].device = std::move(device);
    }
}

void UsbBus::Detach(std::size_t number) {
    AwaitRemoval(places[number]);
}

/// A device that is plugged in before the kernel has removed the previous one of its port would get
/// no driver.
/// @throws std::runtime_error if the removal takes more than 5 s
void UsbBus::AwaitRemoval(Place& place) const {
    const bool removed = WaitUntil([this, &place] {
        return (place.device.empty() || !fs::exists(devices / place.device)) &&
               ports.IsFree(place.port.value_or(0));
    });
    if (!removed) {
        throw std::runtime_error(
            "the kernel has not removed the device within 5 s: unplug it again");
    }
    place.device.clear();
}

void UsbBus::SendEvent(std::size_t /*number*/, const std::string& /*action*/) {
    throw std::runtime_error("on USB, only the kernel sends events");
}

void UsbBus::Reset(std::size_t number) {
    const std::string name = DeviceName(number);
    if (name.empty()) {
        throw std::runtime_error("the kernel has not accepted the device");
    }
    const auto read = [this, &name](const char* attribute) {
        unsigned value = 0;
        std::ifstream(devices / name / attribute) >> value;
        const std::string digits = std::to_string(value);
        return std::string(3 - std::min<std::size_t>(digits.size(), 3), '0') + digits;
    };
    const std::string node = "/dev/bus/usb/" + read("busnum") + "/" + read("devnum");
    const std::string failure = "cannot reset " + node;
    const FileDescriptor device(Checked(open(node.c_str(), O_WRONLY | O_CLOEXEC), failure));
    Checked(ioctl(device.Get(), USBDEVFS_RESET), failure);
}

}  // namespace simulator
