#pragma once

#include <array>

/// The TCP ports that the daemon serves. Every client may use either: both serve the same methods.
inline constexpr std::array kPorts{44221U, 44222U};
