#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <string_view>

namespace bench {

/// Cuts what comes from a descriptor into lines, without allocating.
///
/// A line that is not whole yet is kept for the next read; one that is longer than 1024 bytes
/// loses its beginning.
class LineBuffer {
public:
    static constexpr std::size_t kReadSize = 4096;

    /// Where to read the next kReadSize bytes to.
    char* Room() { return bytes.data() + kept; }

    /// Takes in `count` bytes that were read to Room().
    /// @param handle called for every whole line, which it gets without its line feed
    template <typename Handle>
    void Take(std::size_t count, const Handle& handle) {
        const char* start = bytes.data();
        const char* const end = Room() + count;
        for (const char* lineFeed = std::find(start, end, '\n'); lineFeed != end;
             lineFeed = std::find(start, end, '\n')) {
            handle(std::string_view(start, lineFeed));
            start = lineFeed + 1;
        }
        kept = static_cast<std::size_t>(end - start);
        if (kept > kLongestLine) {
            kept = 0;
        }
        std::copy_n(start, kept, bytes.data());
    }

private:
    static constexpr std::size_t kLongestLine = 1024;

    std::array<char, kLongestLine + kReadSize> bytes;
    std::size_t kept = 0;  // bytes of a line without its end
};

}  // namespace bench
