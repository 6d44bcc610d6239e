#pragma once

#include <cstddef>
#include <cstdint>

#include "pellix/Protocol.h"

/// Process data and parameters of the gripper models, for the gripper classes only.
namespace pellix::layout {

inline constexpr std::size_t kPdinLength = 4;   // bytes
inline constexpr std::size_t kPdoutLength = 2;  // bytes

// PDOUT byte 0. Bit 3 is unused. Byte 1 is the number of the parameter set.
inline constexpr std::uint8_t kDirectionGrip = 0x01;
inline constexpr std::uint8_t kEnable = 0x02;
inline constexpr std::uint8_t kReferenceRun = 0x04;
inline constexpr std::uint8_t kHoldfast = 0x10;
inline constexpr unsigned kLedPresetShift = 5;
inline constexpr std::uint8_t kBelowLedPreset = 0x1F;

// PDIN: bytes 0 and 1 are the position (signed, big-endian), byte 2 the status, byte 3 the state
// code and flags.
inline constexpr std::size_t kStatusByte = 2;
inline constexpr std::size_t kStateByte = 3;
inline constexpr std::uint8_t kLowNibble = 0x0F;
inline constexpr std::uint8_t kHoldfastStatus = 0x04;
inline constexpr unsigned kFirstStatusFlag = 4;  // bit number
inline constexpr std::uint8_t kFault = 0x10;
inline constexpr std::uint8_t kTempFault = 0x20;
inline constexpr std::uint8_t kTempWarn = 0x40;
inline constexpr std::uint8_t kMaintenance = 0x80;

// Indices of parameter set 0 and LED 0. The client's number, 0 to 255, is added without a check.
inline constexpr unsigned kFirstSetIndex = 0x60;
inline constexpr unsigned kNoPartLimitSubindex = 1;
inline constexpr unsigned kReleaseLimitSubindex = 2;
inline constexpr unsigned kForceSubindex = 3;
inline constexpr unsigned kFirstLedIndex = 0x80;
inline constexpr unsigned kLedAnimationSubindex = 1;
inline constexpr unsigned kLedColorSubindex = 2;
inline constexpr unsigned kLedSpeedSubindex = 3;

inline constexpr ParameterAddress kOverrideGrip{0x40, 1};
inline constexpr ParameterAddress kOverrideRelease{0x40, 2};
inline constexpr ParameterAddress kReferenceDirection{0x40, 3};
inline constexpr ParameterAddress kChecksum{3, 4};
inline constexpr ParameterAddress kSystemCommand{2, 0};
inline constexpr std::uint8_t kStoreCommand = 0xE0;
inline constexpr std::uint8_t kTrue = 0xFF;
inline constexpr std::uint8_t kFalse = 0x00;

// Elements of the device information.
inline constexpr std::size_t kVendorElement = 7;
inline constexpr std::size_t kModelElement = 8;

inline constexpr double kScale = 100.0;  // positions and limits are hundredths

}  // namespace pellix::layout
