#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "doctor/Finding.h"

namespace tavrik {

struct Host;

/// A tty with a USB device above it. Texts are empty where the device has none.
struct UsbTty {
    std::string node;
    std::string vendor;
    std::string productId;
    std::string manufacturer;
    std::string product;
    std::string serial;
    bool modemManagerIgnores = false;

    /// The identity values that differ from those of a master, in words; empty for a master.
    std::string Mismatch() const;
    bool IsMaster() const { return Mismatch().empty(); }
};

/// All that udev knows.
std::vector<UsbTty> ListUsbTtys();

/// Whether a tty belongs to a master, and nothing keeps the daemon from using it.
Findings CheckTty(const Host& host, const UsbTty& tty);

/// Whether a modem manager talks to the masters.
Finding CheckModemManager(const Host& host);

/// Whether there is a master, and a gripper is listed for each that the daemon has opened.
/// @param listed how many grippers the daemon lists; nothing if it does not answer
Finding CheckMasters(const Host& host, std::optional<std::size_t> listed);

/// Whether the daemon has none of the attached masters open, so that its data of the grippers are
/// stale. False if that cannot be seen.
bool AreGrippersStale(const Host& host);

}  // namespace tavrik
