#include "pellix/MZD.h"

#include "pellix/GripperLayout.h"

namespace pellix {

using namespace layout;

bool MZD::IsSupported(Pellix& link) {
    const GripperModel model = DetectModel(link);
    return model == kMzdS || model == kMzdL;
}

unsigned MZD::Holdfast(Pellix& link, bool on) {
    return SendPdout(
        link,
        [](std::vector<std::uint8_t>& pdout, std::uint8_t bit) {
            pdout[0] = static_cast<std::uint8_t>((pdout[0] & ~kHoldfast) | bit);
        },
        on ? kHoldfast : std::uint8_t{0});
}

bool MZD::GetHoldfastStatus(Pellix& link) {
    return (GetStatusNibble(link) & kHoldfastStatus) != 0;
}

unsigned MZD::SetLEDPreset(Pellix& link, std::uint8_t preset) {
    return SendPdout(
        link,
        [](std::vector<std::uint8_t>& pdout, std::uint8_t number) {
            pdout[0] = static_cast<std::uint8_t>((pdout[0] & kBelowLedPreset) |
                                                 (number << kLedPresetShift));
        },
        preset);
}

std::uint8_t MZD::GetLEDAnimation(Pellix& link, std::uint8_t led) {
    return ReadByte(link, {kFirstLedIndex + led, kLedAnimationSubindex});
}

std::uint8_t MZD::GetLEDColor(Pellix& link, std::uint8_t led) {
    return ReadByte(link, {kFirstLedIndex + led, kLedColorSubindex});
}

std::uint8_t MZD::GetLEDSpeed(Pellix& link, std::uint8_t led) {
    return ReadByte(link, {kFirstLedIndex + led, kLedSpeedSubindex});
}

unsigned MZD::SetLEDAnimation(Pellix& link, std::uint8_t led, std::uint8_t value) {
    return WriteByte(link, {kFirstLedIndex + led, kLedAnimationSubindex}, value);
}

unsigned MZD::SetLEDColor(Pellix& link, std::uint8_t led, std::uint8_t value) {
    return WriteByte(link, {kFirstLedIndex + led, kLedColorSubindex}, value);
}

unsigned MZD::SetLEDSpeed(Pellix& link, std::uint8_t led, std::uint8_t value) {
    return WriteByte(link, {kFirstLedIndex + led, kLedSpeedSubindex}, value);
}

}  // namespace pellix
