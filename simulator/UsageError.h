#pragma once

#include <stdexcept>

namespace simulator {

/// What somebody typed is not understood; the text says why.
class UsageError : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

}  // namespace simulator
