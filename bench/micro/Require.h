#pragma once

#include <stdexcept>

/// Ends the run unless what was measured did what it is to do.
/// @throws std::runtime_error with the text `otherwise`
inline void Require(bool done, const char* otherwise) {
    if (!done) {
        throw std::runtime_error(otherwise);
    }
}
