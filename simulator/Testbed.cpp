#include "simulator/Testbed.h"

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <string_view>
#include <system_error>
#include <thread>

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

/// Makes a link, with a relative target as in sysfs, in place of one that is there already.
void Link(const fs::path& target, const fs::path& link) {
    fs::create_directories(link.parent_path());
    fs::remove(link);
    fs::create_symlink(fs::relative(target, link.parent_path()), link);
}

/// Paths of one master's devices, relative to the testbed's sys folder.
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

}  // namespace

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

    // The node comes first: whoever sees the tty in sysfs may open it at once.
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

}  // namespace simulator
