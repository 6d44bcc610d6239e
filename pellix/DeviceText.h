#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace pellix {

/// Converts a device parameter to text that is safe in an XML-RPC string, so that one invalid
/// serial number does not make the list of all grippers unreadable. Cuts trailing zero bytes.
/// Replaces by "?": control bytes below 0x20 except TAB and LF, each byte of invalid UTF-8,
/// characters that XML does not allow, and characters above U+FFFF. Any thread may call.
std::string ToSafeText(const std::vector<std::uint8_t>& bytes);

}  // namespace pellix
