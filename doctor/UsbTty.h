#pragma once

#include <string>
#include <vector>

namespace tavrik {

/// A tty with a USB device above it. Texts are empty where the device has none.
struct UsbTty {
    std::string node;
    std::string vendor;
    std::string productId;
    std::string manufacturer;
    std::string product;
    std::string serial;
    bool modemManagerIgnores = false;

    /// Which of the values that make a master are others, in words; empty for a master.
    std::string Mismatch() const;
    bool IsMaster() const { return Mismatch().empty(); }
};

/// All that udev knows.
std::vector<UsbTty> ListUsbTtys();

}  // namespace tavrik
