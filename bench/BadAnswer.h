#pragma once

#include <stdexcept>

namespace bench {

/// An answer that is no answer to the call; the text says why.
class BadAnswer : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

}  // namespace bench
