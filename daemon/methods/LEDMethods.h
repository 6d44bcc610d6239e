#pragma once

#include <string>

#include "daemon/methods/GripperMethod.h"
#include "pellix/MZD.h"

// Methods for the LED ring of the MZD models.

/// On purpose: checks the device string again, because another gripper may have been plugged in
/// during the request of the model check.
template <typename Result, typename... Parameters>
class LEDCall : public GripperCall<Result, Parameters...> {
protected:
    LEDCall(GripperManager* manager, const char* name, const char* signature,
            Result (*operation)(pellix::Pellix&, Parameters...), Result fallback)
        : GripperCall<Result, Parameters...>(manager, name, signature, operation, fallback,
                                             pellix::MZD::IsSupported) {}

    bool IsAccepted(pellix::Pellix& link, const std::string& device) const override {
        return GripperCall<Result, Parameters...>::IsAccepted(link, device) &&
               link.GetDeviceString() == device;
    }
};

class GetLEDAnimation : public LEDCall<std::uint8_t, std::uint8_t> {
public:
    explicit GetLEDAnimation(GripperManager* manager)
        : LEDCall(manager, "GetLEDAnimation", "i:Si", pellix::MZD::GetLEDAnimation, 0) {}
};

class GetLEDColor : public LEDCall<std::uint8_t, std::uint8_t> {
public:
    explicit GetLEDColor(GripperManager* manager)
        : LEDCall(manager, "GetLEDColor", "i:Si", pellix::MZD::GetLEDColor, 0) {}
};

class GetLEDSpeed : public LEDCall<std::uint8_t, std::uint8_t> {
public:
    explicit GetLEDSpeed(GripperManager* manager)
        : LEDCall(manager, "GetLEDSpeed", "i:Si", pellix::MZD::GetLEDSpeed, 0) {}
};

class SetLEDPreset : public LEDCall<unsigned, std::uint8_t> {
public:
    explicit SetLEDPreset(GripperManager* manager)
        : LEDCall(manager, "SetLEDPreset", "i:Si", pellix::MZD::SetLEDPreset, kStatusRefused) {}
};

class SetLEDAnimation : public LEDCall<unsigned, std::uint8_t, std::uint8_t> {
public:
    explicit SetLEDAnimation(GripperManager* manager)
        : LEDCall(manager, "SetLEDAnimation", "i:Sii", pellix::MZD::SetLEDAnimation,
                  kStatusRefused) {}
};

class SetLEDColor : public LEDCall<unsigned, std::uint8_t, std::uint8_t> {
public:
    explicit SetLEDColor(GripperManager* manager)
        : LEDCall(manager, "SetLEDColor", "i:Sii", pellix::MZD::SetLEDColor, kStatusRefused) {}
};

class SetLEDSpeed : public LEDCall<unsigned, std::uint8_t, std::uint8_t> {
public:
    explicit SetLEDSpeed(GripperManager* manager)
        : LEDCall(manager, "SetLEDSpeed", "i:Sii", pellix::MZD::SetLEDSpeed, kStatusRefused) {}
};
