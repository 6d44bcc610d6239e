#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace pellix {

/// Text of a device parameter, safe for an XML-RPC string: one odd serial number must not spoil
/// the list of all grippers. Trailing zero bytes are cut. What would not reach a client unharmed
/// becomes "?": control bytes below 0x20 but TAB and LF, bytes that are not UTF-8 (one "?" each),
/// characters that XML does not know, and characters beyond the basic plane.
std::string ToSafeText(const std::vector<std::uint8_t>& bytes);

}  // namespace pellix
