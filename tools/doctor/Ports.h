#pragma once

#include <array>

namespace tavrikctl {

/// Of TavrikDaemon, fixed.
inline constexpr std::array kPorts{44221U, 44222U};

}  // namespace tavrikctl
