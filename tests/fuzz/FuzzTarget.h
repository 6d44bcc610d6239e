#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

// Entry points that the fuzzer calls. The fuzzer defines the names.
extern "C" {
/// Called once, before the first input.
int LLVMFuzzerInitialize(int* count, char*** arguments);

/// Runs one input of `size` bytes. Ends the process if a check fails.
/// @return 0
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
}

/// Ends the process if `condition` is false; the fuzzer then keeps the input.
inline void Require(bool condition, const char* what) {
    if (!condition) {
        std::fprintf(stderr, "Violated: %s\n", what);
        std::abort();
    }
}
