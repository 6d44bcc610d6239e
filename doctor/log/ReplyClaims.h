#pragma once

#include <cstdint>
#include <deque>
#include <vector>

namespace tavrik {

/// Concludes which replies certainly belong to requests that have ended, although it may be unknown
/// which belongs to which: two requests that can only have two replies leave none of these for a
/// third. A reply is given as the number of its line in the log.
class ReplyClaims {
public:
    /// Adds a request that has ended.
    /// @param replies one of which is its reply; repeated ones count once
    /// @return replies that are now known to belong to ended requests
    std::vector<std::uint64_t> Add(std::vector<std::uint64_t> replies);

private:
    using Claim = std::vector<std::uint64_t>;  // in ascending order

    std::vector<std::uint64_t> TakeSettled();

    std::deque<Claim> claims;  // of the requests whose reply is unknown, oldest first
};

}  // namespace tavrik
