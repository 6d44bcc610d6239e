#include "tools/doctor/UsbTty.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "pellix/Udev.h"
#include "tools/Printable.h"

namespace tavrikctl {

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

}  // namespace

std::string UsbTty::Mismatch() const {
    struct Value {
        const char* name;
        const std::string& text;
        std::vector<std::string_view> wanted;
    };
    const std::array<Value, 4> values{Value{"vendor", vendor, {"0483"}},
                                      Value{"product id", productId, {"5740"}},
                                      Value{"manufacturer", manufacturer, {"Zentrova"}},
                                      Value{"product", product, {"PELLIX", "MARROK-7"}}};
    std::string text;
    for (const auto& [name, value, wanted] : values) {
        if (std::find(wanted.begin(), wanted.end(), value) != wanted.end()) {
            continue;
        }
        text += (text.empty() ? "" : "; ") + std::string(name) +
                (value.empty() ? " is missing" : " is \"" + Printable(value) + "\"") + ", not \"" +
                std::string(wanted.front()) + "\"" +
                (wanted.size() > 1 ? " or \"" + std::string(wanted.back()) + "\"" : "");
    }
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

}  // namespace tavrikctl
