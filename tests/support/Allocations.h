#pragma once

#include <cstddef>
#include <limits>

/// Linking this replaces the global operators new and delete.
namespace support {

/// @return bytes that this process currently has from operator new
std::size_t LiveBytes();

/// During its lifetime, operator new throws std::bad_alloc on the thread that created the object.
class FailingAllocations {
public:
    /// Selects the allocations that fail: of those of `smallest` to `largest` bytes, the first
    /// `spared` succeed and the next `count` fail.
    struct Which {
        std::size_t smallest = 0;
        std::size_t largest = std::numeric_limits<std::size_t>::max();
        unsigned spared = 0;
        unsigned count = 1;
    };

    explicit FailingAllocations(Which which);
    FailingAllocations(const FailingAllocations&) = delete;
    FailingAllocations& operator=(const FailingAllocations&) = delete;
    ~FailingAllocations();
};

}  // namespace support
