#include "tests/support/Allocations.h"

#include <malloc.h>

#include <atomic>
#include <cstdlib>
#include <new>

namespace support {

namespace {

std::atomic<std::size_t> liveBytes = 0;
thread_local FailingAllocations::Which failing{.count = 0};

bool IsToFail(std::size_t size) {
    if (failing.count == 0 || size < failing.smallest || size > failing.largest) {
        return false;
    }
    if (failing.spared > 0) {
        --failing.spared;
        return false;
    }
    --failing.count;
    return true;
}

}  // namespace

std::size_t LiveBytes() {
    return liveBytes;
}

FailingAllocations::FailingAllocations(Which which) {
    failing = which;
}

FailingAllocations::~FailingAllocations() {
    failing.count = 0;
}

void* Allocate(std::size_t size) {
    void* const memory = IsToFail(size) ? nullptr : std::malloc(size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    liveBytes += ::malloc_usable_size(memory);
    return memory;
}

void Free(void* memory) {
    liveBytes -= ::malloc_usable_size(memory);
    std::free(memory);
}

}  // namespace support

void* operator new(std::size_t size) {
    return support::Allocate(size);
}

void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
    try {
        return support::Allocate(size);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

void operator delete(void* memory) noexcept {
    support::Free(memory);
}

void operator delete(void* memory, std::size_t /*size*/) noexcept {
    support::Free(memory);
}
