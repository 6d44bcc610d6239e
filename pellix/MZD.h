#pragma once

#include <cstdint>

#include "pellix/HVA.h"

namespace pellix {

/// Operations of the MZD models. Threads, blocking and results as in CorvaneGripper.
class MZD : public HVA {
public:
    /// Requests the device information, so it blocks as long as a request.
    /// @return whether the device is an MZD
    /// @throws std::out_of_range if the information ends after the vendor id
    static bool IsSupported(Pellix& link);

    static unsigned Holdfast(Pellix& link, bool on);

    /// Tells whether Holdfast() is in effect, from the last process input data; no method returns
    /// it to clients.
    /// @return bit 2 of the status byte; false without valid process data
    static bool GetHoldfastStatus(Pellix& link);

    /// Selects LED preset 0 to 7; ignores the higher bits of `preset`.
    static unsigned SetLEDPreset(Pellix& link, std::uint8_t preset);

    /// Settings of LED `led`; the getters return 0 if the value is not one byte long.
    static std::uint8_t GetLEDAnimation(Pellix& link, std::uint8_t led);
    static std::uint8_t GetLEDColor(Pellix& link, std::uint8_t led);
    static std::uint8_t GetLEDSpeed(Pellix& link, std::uint8_t led);
    static unsigned SetLEDAnimation(Pellix& link, std::uint8_t led, std::uint8_t value);
    static unsigned SetLEDColor(Pellix& link, std::uint8_t led, std::uint8_t value);
    static unsigned SetLEDSpeed(Pellix& link, std::uint8_t led, std::uint8_t value);
};

}  // namespace pellix
