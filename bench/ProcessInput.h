#pragma once

#include <array>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <system_error>

namespace bench {

/// The bytes of one line of process data.
using ProcessInput = std::array<std::uint8_t, 4>;

/// Reads "@PDIN=[9,c4,0,3]".
/// @return false, with anything in `input`, for every other line
inline bool DecodeProcessInput(std::string_view line, ProcessInput& input) {
    constexpr std::string_view kStart = "@PDIN=[";
    if (!line.starts_with(kStart)) {
        return false;
    }
    const char* place = line.data() + kStart.size();
    const char* const end = line.data() + line.size();
    for (std::size_t index = 0; index < input.size(); ++index) {
        const auto result = std::from_chars(place, end, input[index], 16);
        const char expected = index + 1 < input.size() ? ',' : ']';
        if (result.ec != std::errc() || result.ptr == end || *result.ptr != expected) {
            return false;
        }
        place = result.ptr + 1;
    }
    return place == end;
}

}  // namespace bench
