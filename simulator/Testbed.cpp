#include "simulator/Testbed.h"

#include <arpa/inet.h>
#include <dlfcn.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <utility>

#include "simulator/FileDescriptor.h"

#include "common/UsbIdentity.h"

namespace simulator {

namespace fs = std::filesystem;

namespace {

constexpr unsigned kTtyMajor = 166;
constexpr std::chrono::milliseconds kRemoveEventLag{20};

fs::path MakeFolder() {
    std::string name = (fs::temp_directory_path() / "pellix-sim.XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) {
        throw std::system_error(errno, std::generic_category(), "mkdtemp");
    }
    return name;
}

void WriteFile(const fs::path& path, std::string_view text) {
    std::ofstream file(path);
    file << text;
    if (!file.flush()) {
        throw std::runtime_error("cannot write " + path.string());
    }
}

/// Creates or replaces a link with a relative target, as in sysfs.
void Link(const fs::path& target, const fs::path& link) {
    fs::create_directories(link.parent_path());
    fs::remove(link);
    fs::create_symlink(fs::relative(target, link.parent_path()), link);
}

/// Paths of a master's devices, relative to the testbed's sys folder.
struct Devices {
    explicit Devices(std::size_t number)
        : usbName("1-" + std::to_string(number + 1)),
          ttyName("ttyACM" + std::to_string(number)),
          usb(fs::path("devices/pci0000:00/0000:00:14.0/usb1") / usbName),
          interface(usb / (usbName + ":1.0")),
          tty(interface / "tty" / ttyName),
          deviceNumber(std::to_string(kTtyMajor) + ":" + std::to_string(number)) {}

    std::string usbName;
    std::string ttyName;
    fs::path usb;
    fs::path interface;
    fs::path tty;
    std::string deviceNumber;
};

/// libudev's header of a message; its socket filter checks the hash.
struct MessageHeader {
    std::array<char, 8> prefix{'l', 'i', 'b', 'u', 'd', 'e', 'v', '\0'};
    std::uint32_t magic = htonl(0xfeedcafe);
    std::uint32_t headerSize = sizeof(MessageHeader);
    std::uint32_t propertiesOffset = sizeof(MessageHeader);
    std::uint32_t propertiesLength = 0;
    std::uint32_t subsystemHash = htonl(0x8afa90c8);  // MurmurHash2 of "tty"
    std::uint32_t devtypeHash = 0;
    std::uint32_t tagBloomHigh = 0;
    std::uint32_t tagBloomLow = 0;
};

std::string BuildMessage(const std::vector<std::string>& properties) {
    std::string body;
    for (const std::string& property : properties) {
        body += property;
        body += '\0';
    }
    MessageHeader header;
    header.propertiesLength = static_cast<std::uint32_t>(body.size());
    std::string message(sizeof header, '\0');
    std::memcpy(message.data(), &header, sizeof header);
    return message + body;
}

enum class Delivery { Done, NoRoom, Gone };

Delivery Deliver(const std::string& path, const std::string& message) {
    const FileDescriptor sender(socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    const ssize_t count = sendto(sender.Get(), message.data(), message.size(), MSG_NOSIGNAL,
                                 reinterpret_cast<const sockaddr*>(&address), sizeof address);
    if (count != -1) {
        return Delivery::Done;
    }
    return errno == EAGAIN ? Delivery::NoRoom : Delivery::Gone;
}

/// The loader only warns if it cannot preload a library; COMMAND would then use real devices.
void CheckLibrary(const std::string& library) {
    void* const handle = dlopen(library.c_str(), RTLD_LAZY);
    if (handle == nullptr) {
        throw std::runtime_error("cannot load " + library + "; install the package umockdev");
    }
    dlclose(handle);
}

}  // namespace

UeventSender::UeventSender(fs::path folder)
    : folder(std::move(folder)), thread([this] { DrainLoop(); }) {}

UeventSender::~UeventSender() {
    {
        const std::lock_guard lock(mutex);
        stopping = true;
    }
    condition.notify_all();
    thread.join();
}

void UeventSender::Send(const std::vector<std::string>& properties) {
    constexpr std::size_t kLongestBacklog = 200;
    const std::string message = BuildMessage(properties);
    bool lost = false;
    const std::lock_guard lock(mutex);
    for (const auto& entry : fs::directory_iterator(folder)) {
        if (!entry.path().filename().string().starts_with("event")) {
            continue;
        }
        Messages& messages = backlog[entry.path()];
        lost = lost || messages.size() >= kLongestBacklog;
        if (messages.size() < kLongestBacklog) {
            messages.push_back(message);
        }
    }
    Drain();
    condition.notify_all();
    if (lost) {
        throw std::runtime_error("a udev monitor does not read its events and misses this one");
    }
}

/// Sends as far as the monitors have room; call it with the lock held.
void UeventSender::Drain() {
    for (auto place = backlog.begin(); place != backlog.end();) {
        auto& [path, messages] = *place;
        Delivery delivery = Delivery::Done;
        while (!messages.empty() && delivery == Delivery::Done) {
            delivery = Deliver(path, messages.front());
            if (delivery == Delivery::Done) {
                messages.pop_front();
            }
        }
        place = delivery == Delivery::NoRoom ? std::next(place) : backlog.erase(place);
    }
}

/// Retries while a monitor is behind.
void UeventSender::DrainLoop() {
    constexpr std::chrono::milliseconds kRetryPause{5};
    std::unique_lock lock(mutex);
    while (!stopping) {
        if (backlog.empty()) {
            condition.wait(lock);
        } else {
            condition.wait_for(lock, kRetryPause);
            Drain();
        }
    }
}

Testbed::Testbed() : folder(MakeFolder()), sender(folder) {
    for (const char* const name :
         {"dev", "sys/bus/usb/devices", "sys/class/tty", "sys/dev/char", "sys/devices"}) {
        fs::create_directories(folder / name);
    }
}

Testbed::~Testbed() {
    std::error_code ignored;
    fs::remove_all(folder, ignored);
}

void Testbed::AddSubsystem(const fs::path& device, const std::string& subsystem,
                           const std::string& uevent) const {
    const fs::path sys = folder / "sys";
    const std::string group = subsystem == "usb" ? "bus" : "class";
    Link(sys / group / subsystem, sys / device / "subsystem");
    WriteFile(sys / device / "uevent", uevent);
}

void Testbed::Add(std::size_t number, const std::string& ttyPath) {
    const Devices devices(number);
    const fs::path sys = folder / "sys";
    fs::create_directories(sys / devices.tty);

    AddSubsystem(devices.usb, "usb", "DEVTYPE=usb_device\n");
    WriteFile(sys / devices.usb / "idVendor", std::string(kUsbVendorId) + "\n");
    WriteFile(sys / devices.usb / "idProduct", std::string(kUsbProductId) + "\n");
    WriteFile(sys / devices.usb / "manufacturer", std::string(kUsbManufacturer) + "\n");
    WriteFile(sys / devices.usb / "product", "PELLIX\n");
    WriteFile(sys / devices.usb / "serial", "PX" + std::to_string(1000 + number) + "\n");
    Link(sys / devices.usb, sys / "bus/usb/devices" / devices.usbName);

    AddSubsystem(devices.interface, "usb", "DEVTYPE=usb_interface\n");
    Link(sys / devices.interface, sys / "bus/usb/devices" / devices.interface.filename());

    // The node comes first: a program that sees the tty in sysfs may open it at once.
    RemoveNode(number);
    fs::create_symlink(ttyPath, folder / "dev" / devices.ttyName);
    AddSubsystem(devices.tty, "tty",
                 "MAJOR=" + std::to_string(kTtyMajor) + "\nMINOR=" + std::to_string(number) +
                     "\nDEVNAME=" + devices.ttyName + "\n");
    WriteFile(sys / devices.tty / "dev", devices.deviceNumber + "\n");
    Link(sys / devices.tty, sys / "dev/char" / devices.deviceNumber);
    Link(sys / devices.tty, sys / "class/tty" / devices.ttyName);
}

void Testbed::RemoveNode(std::size_t number) const {
    fs::remove(folder / "dev" / Devices(number).ttyName);
}

void Testbed::RemoveDevices(std::size_t number) const {
    const Devices devices(number);
    const fs::path sys = folder / "sys";
    fs::remove(sys / "class/tty" / devices.ttyName);
    fs::remove(sys / "dev/char" / devices.deviceNumber);
    fs::remove(sys / "bus/usb/devices" / devices.interface.filename());
    fs::remove(sys / "bus/usb/devices" / devices.usbName);
    fs::remove_all(sys / devices.usb);
}

void Testbed::Plug(std::size_t number, const std::string& ttyPath) {
    Add(number, ttyPath);
    SendEvent(number, "add");
}

void Testbed::Unplug(std::size_t number) {
    std::this_thread::sleep_for(kRemoveEventLag);
    RemoveDevices(number);
    SendEvent(number, "remove");
}

void Testbed::SendEvent(std::size_t number, const std::string& action) {
    const Devices devices(number);
    sender.Send({"ACTION=" + action, "DEVPATH=/" + devices.tty.string(), "SUBSYSTEM=tty",
                 "SEQNUM=" + std::to_string(++eventCount), "DEVNAME=/dev/" + devices.ttyName,
                 "MAJOR=" + std::to_string(kTtyMajor), "MINOR=" + std::to_string(number)});
}

/// The user's libraries come first (a sanitizer's runtime must), then our own, which must precede
/// umockdev's. Our own is named by a link in the testbed, because its path may contain a blank or a
/// colon, which would end the name.
std::string PreloadList(const fs::path& testbedFolder, const fs::path& libraryFolder) {
    const fs::path ownLibrary = testbedFolder / PELLIX_SIM_PRELOAD_NAME;
    fs::create_symlink(libraryFolder / PELLIX_SIM_PRELOAD_NAME, ownLibrary);
    CheckLibrary(ownLibrary);
    CheckLibrary(UMOCKDEV_PRELOAD_NAME);
    const char* const usersList = std::getenv("LD_PRELOAD");  // NOLINT(concurrency-mt-unsafe)
    const std::string first = usersList == nullptr ? "" : std::string(usersList) + ":";
    return first + ownLibrary.string() + ":" + UMOCKDEV_PRELOAD_NAME;
}

}  // namespace simulator
