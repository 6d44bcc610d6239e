#pragma once

#include <cstdint>

#include "pellix/CorvaneGripper.h"

namespace pellix {

/// Operations of the HVA and MZD models. Threads, blocking and results as in CorvaneGripper.
class HVA : public CorvaneGripper {
public:
    /// Requests the device information, so it blocks as long as a request.
    /// @return whether the device is an HVA or MZD
    /// @throws std::out_of_range if the information ends after the vendor id
    static bool IsSupported(Pellix& link);

    /// Switches the drive on and starts a reference run.
    static unsigned Reference(Pellix& link);

    /// @return force of parameter set `set`; 0 if the value is not one byte long
    static std::uint8_t GetForce(Pellix& link, std::uint8_t set);
    static unsigned SetForce(Pellix& link, std::uint8_t set, std::uint8_t force);

    static unsigned SetOverrideGrip(Pellix& link, std::uint8_t value);
    static unsigned SetOverrideRelease(Pellix& link, std::uint8_t value);

    /// @return false if the value is zero or not one byte long
    static bool GetReferenceDirection(Pellix& link);
    static unsigned SetReferenceDirection(Pellix& link, bool direction);
};

}  // namespace pellix
