#pragma once

#include <array>
#include <cstddef>
#include <string_view>

namespace simulator {

/// One direction of a line: takes from one descriptor what another has room for, and no more.
class ByteFlow {
public:
    /// Reads at most 4096 bytes. Only while nothing waits.
    /// @return what was read, valid until the next call; empty when there is nothing
    std::string_view Fill(int descriptor);

    /// Writes what waits, as far as there is room.
    void Drain(int descriptor);

    bool IsWaiting() const { return begin < end; }
    void Drop() { begin = end; }

private:
    std::array<char, 4096> buffer{};
    std::size_t begin = 0;  // of what waits
    std::size_t end = 0;
};

}  // namespace simulator
