#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "simulator/usb/UsbFaults.h"

/// The descriptors of a master: a USB 2.0 full-speed device of the class CDC-ACM.
namespace simulator::descriptors {

constexpr std::uint8_t kBulkEndpoint = 1;       ///< in both directions
constexpr std::uint8_t kInterruptEndpoint = 2;  ///< to the host

enum class Type : std::uint8_t { Device = 1, Configuration = 2, String = 3 };

/// The descriptor that the host asks for, as bytes.
/// @param configurationLength cuts the descriptor of the configuration, but not the total length
/// that it claims
/// @return nothing if the device does not have it
std::optional<std::string> Find(Type type, std::uint8_t index, const UsbTexts& texts,
                                const std::optional<std::size_t>& configurationLength);

}  // namespace simulator::descriptors
