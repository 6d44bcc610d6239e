#pragma once

#include <cstdint>

#include "pellix/HVA.h"

namespace pellix {

/// Operations that only the MZD models have. Threads, blocking and results as in the base.
class MZD : public HVA {
public:
    /// Asks for the device information and tells whether it is that of an MZD.
    /// @throws std::out_of_range when the information ends after the vendor id
    static bool IsSupported(Pellix& link);

    static unsigned Holdfast(Pellix& link, bool on);

    /// Bit 2 of the status byte of the process input data; false while they are not valid.
    static bool GetHoldfastStatus(Pellix& link);

    /// Selects LED preset 0 to 7; higher bits of `preset` fall away.
    static unsigned SetLEDPreset(Pellix& link, std::uint8_t preset);

    /// Settings of LED `led`; 0 when the value is not one byte long.
    static std::uint8_t GetLEDAnimation(Pellix& link, std::uint8_t led);
    static std::uint8_t GetLEDColor(Pellix& link, std::uint8_t led);
    static std::uint8_t GetLEDSpeed(Pellix& link, std::uint8_t led);
    static unsigned SetLEDAnimation(Pellix& link, std::uint8_t led, std::uint8_t value);
    static unsigned SetLEDColor(Pellix& link, std::uint8_t led, std::uint8_t value);
    static unsigned SetLEDSpeed(Pellix& link, std::uint8_t led, std::uint8_t value);
};

}  // namespace pellix
