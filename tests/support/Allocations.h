#pragma once

#include <cstddef>
#include <limits>

/// Linking this replaces the global operators new and delete.
namespace support {

/// Bytes that this process has from operator new at the moment.
std::size_t LiveBytes();

/// For its scope, operator new throws std::bad_alloc on the thread that made the object.
class FailingAllocations {
public:
    /// Which ones fail: those of `smallest` to `largest` bytes, after `spared` of them have
    /// succeeded, and `count` in all.
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
