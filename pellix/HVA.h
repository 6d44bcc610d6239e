#pragma once

#include <cstdint>

#include "pellix/CorvaneGripper.h"

namespace pellix {

/// Operations that an HVA or MZD gripper has. Threads, blocking and results as in the base.
class HVA : public CorvaneGripper {
public:
    /// Asks for the device information and tells whether it is that of an HVA or MZD.
    /// @throws std::out_of_range when the information ends after the vendor id
    static bool IsSupported(Pellix& link);

    /// Drive on, and a reference run.
    static unsigned Reference(Pellix& link);

    /// Force of parameter set `set`; 0 when the value is not one byte long.
    static std::uint8_t GetForce(Pellix& link, std::uint8_t set);
    static unsigned SetForce(Pellix& link, std::uint8_t set, std::uint8_t force);

    static unsigned SetOverrideGrip(Pellix& link, std::uint8_t value);
    static unsigned SetOverrideRelease(Pellix& link, std::uint8_t value);

    /// False when the value is not one byte long.
    static bool GetReferenceDirection(Pellix& link);
    static unsigned SetReferenceDirection(Pellix& link, bool direction);
};

}  // namespace pellix
