#pragma once

#include <cstddef>
#include <cstdint>

// What a fuzzer calls. The names are the fuzzer's.
extern "C" {
/// Called once, before the first input.
int LLVMFuzzerInitialize(int* count, char*** arguments);

/// Runs one input of `size` bytes. @return 0; what must not happen ends the process
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
}
