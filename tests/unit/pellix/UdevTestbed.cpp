#include "tests/unit/pellix/UdevTestbed.h"

#include <filesystem>

namespace fs = std::filesystem;

namespace {

/// Owns a text allocated by glib.
std::string Take(gchar* text) {
    std::string copy = text;
    g_free(text);
    return copy;
}

std::string NodeName(std::size_t number) {
    return "ttyACM" + std::to_string(number);
}

}  // namespace

UdevTestbed::UdevTestbed()
    : testbed(umockdev_testbed_new()),
      root(Take(umockdev_testbed_get_root_dir(testbed.get()))),
      context(udev_new()) {}

std::string UdevTestbed::AddMaster(std::size_t number, const Usb& usb) {
    const std::string name = "1-" + std::to_string(number + 1);
    const std::string parent = Take(umockdev_testbed_add_device(
        testbed.get(), "usb", name.c_str(), nullptr, nullptr, "DEVTYPE", "usb_device", nullptr));
    const auto set = [&](const char* attribute, const std::optional<std::string>& value) {
        if (value) {
            umockdev_testbed_set_attribute(testbed.get(), parent.c_str(), attribute,
                                           value->c_str());
        }
    };
    set("idVendor", usb.vendor);
    set("idProduct", usb.product);
    set("manufacturer", usb.manufacturer);
    set("product", usb.name);
    set("serial", usb.serial);
    return AddDevice("tty", NodeName(number), parent.c_str());
}

std::string UdevTestbed::Add(const std::string& subsystem, const std::string& name) {
    return AddDevice(subsystem, name, nullptr);
}

std::string UdevTestbed::AddDevice(const std::string& subsystem, const std::string& name,
                                   const char* parent) const {
    return Take(umockdev_testbed_add_device(testbed.get(), subsystem.c_str(), name.c_str(), parent,
                                            nullptr, "DEVNAME", ("/dev/" + name).c_str(), nullptr));
}

void UdevTestbed::Connect(std::size_t number, const std::string& path) const {
    const fs::path folder = fs::path(root) / "dev";
    fs::create_directories(folder);
    fs::create_symlink(path, folder / NodeName(number));
}

void UdevTestbed::Disconnect(std::size_t number) const {
    fs::remove(fs::path(root) / "dev" / NodeName(number));
}

void UdevTestbed::SendEvent(const std::string& sysPath, const std::string& action) {
    umockdev_testbed_uevent(testbed.get(), sysPath.c_str(), action.c_str());
}

// The name of the monitor's socket contains the number of its descriptor.
bool UdevTestbed::IsMonitored() const {
    constexpr int kDescriptors = 100;
    for (int descriptor = 0; descriptor < kDescriptors; ++descriptor) {
        if (fs::exists(fs::path(root) / ("event" + std::to_string(descriptor)))) {
            return true;
        }
    }
    return false;
}

UdevDevice UdevTestbed::Find(const std::string& sysPath) const {
    return UdevDevice(udev_device_new_from_syspath(context.get(), sysPath.c_str()));
}
