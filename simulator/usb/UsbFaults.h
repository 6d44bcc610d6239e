#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>

namespace simulator {

/// The texts of a USB device; a missing one is not in its descriptors.
struct UsbTexts {
    std::optional<std::string> manufacturer;
    std::optional<std::string> product;
    std::optional<std::string> serial;
};

/// How often faults took effect, since the start.
struct UsbFaultCounts {
    unsigned haltedTransfers = 0;  ///< transfers that a halted endpoint refused
    unsigned clearedHalts = 0;     ///< halts that the host cleared
    unsigned cutTransfers = 0;  ///< transfers to the host that are shorter than without the fault
    unsigned failedTransfers = 0;
    unsigned refusedControls = 0;
    unsigned ignoredControls = 0;
    unsigned lateControls = 0;
};

/// How the USB device of a master misbehaves. Accessed on the device's thread only.
struct UsbFaults {
    enum class Control { Answer, Refuse, Ignore };

    Control control = Control::Answer;          ///< how control requests are answered
    std::chrono::milliseconds controlDelay{0};  ///< before the answer to a control request
    bool haltedIn = false;                      ///< until the host clears the halt
    bool haltedOut = false;
    std::size_t longestTransfer = 0;  ///< bytes of a transfer to the host; 0 for no limit
    unsigned failingTransfers = 0;    ///< number of the next transfers that fail

    // Take effect when the device is plugged in.
    UsbTexts texts;
    std::optional<std::size_t> configurationLength;  ///< the descriptor is cut to this length
    bool otherPort = false;                          ///< plug it into another port once

    UsbFaultCounts counts;
};

}  // namespace simulator
