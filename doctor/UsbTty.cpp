#include "doctor/UsbTty.h"

#include <algorithm>

#include "common/Udev.h"
#include "common/UsbIdentity.h"

namespace tavrik {

namespace {

std::string TextOrEmpty(const char* text) {
    return text == nullptr ? "" : text;
}

bool HasIgnoreRule(udev_device* device) {
    return TextOrEmpty(udev_device_get_property_value(device, "ID_MM_DEVICE_IGNORE")) == "1";
}

UsbTty Describe(udev_device* tty, udev_device* usb) {
    const auto attribute = [usb](const char* name) {
        return TextOrEmpty(udev_device_get_sysattr_value(usb, name));
    };
    return {TextOrEmpty(udev_device_get_devnode(tty)),
            attribute("idVendor"),
            attribute("idProduct"),
            attribute("manufacturer"),
            attribute("product"),
            attribute("serial"),
            HasIgnoreRule(tty) || HasIgnoreRule(usb)};
}

/// Adds to `text` in what way `value` is none of the one or two that are wanted.
void Compare(const std::string& name, const std::string& value,
             const std::vector<std::string>& wanted, std::string& text) {
    if (std::find(wanted.begin(), wanted.end(), value) != wanted.end()) {
        return;
    }
    text += (text.empty() ? "" : "; ") + name +
            (value.empty() ? " is missing" : " is \"" + value + "\"") + ", not \"" +
            wanted.front() + "\"" + (wanted.size() > 1 ? " or \"" + wanted.back() + "\"" : "");
}

}  // namespace

std::string UsbTty::Mismatch() const {
    std::string text;
    Compare("vendor", vendor, {kUsbVendorId}, text);
    Compare("product id", productId, {kUsbProductId}, text);
    Compare("manufacturer", manufacturer, {kUsbManufacturer}, text);
    Compare("product", product, {"PELLIX", "MARROK-7"}, text);
    return text;
}

std::vector<UsbTty> ListUsbTtys() {
    std::vector<UsbTty> ttys;
    const UdevContext context(udev_new());
    const UdevEnumerate scan(udev_enumerate_new(context.get()));
    udev_enumerate_add_match_subsystem(scan.get(), "tty");
    udev_enumerate_scan_devices(scan.get());
    for (udev_list_entry* entry = udev_enumerate_get_list_entry(scan.get()); entry != nullptr;
         entry = udev_list_entry_get_next(entry)) {
        const UdevDevice tty(
            udev_device_new_from_syspath(context.get(), udev_list_entry_get_name(entry)));
        udev_device* const usb = tty == nullptr ? nullptr
                                                : udev_device_get_parent_with_subsystem_devtype(
                                                      tty.get(), "usb", "usb_device");
        if (usb != nullptr) {
            ttys.push_back(Describe(tty.get(), usb));
        }
    }
    return ttys;
}

}  // namespace tavrik
