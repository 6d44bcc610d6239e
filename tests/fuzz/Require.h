#pragma once

#include <cstdio>
#include <cstdlib>

/// Ends the process, and with that the run, when `condition` does not hold: the fuzzer then keeps
/// the input that led there.
inline void Require(bool condition, const char* what) {
    if (!condition) {
        std::fprintf(stderr, "Violated: %s\n", what);
        std::abort();
    }
}
