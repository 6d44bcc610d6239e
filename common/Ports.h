#pragma once

#include <array>

/// The TCP ports that the daemon serves. Both have the same methods; a client may use either.
inline constexpr std::array kPorts{44221U, 44222U};
