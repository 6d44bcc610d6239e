#include "doctor/log/ReplyClaims.h"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <utility>

namespace tavrik {

namespace {

// Beyond these, replies stay possible for other requests, which is not wrong.
constexpr std::size_t kMostClaims = 64;
constexpr std::size_t kMostRepliesOfClaim = 16;

}  // namespace

std::vector<std::uint64_t> ReplyClaims::Add(std::vector<std::uint64_t> replies) {
    std::vector<std::uint64_t> settled;
    if (replies.size() > kMostRepliesOfClaim) {
        return settled;
    }
    std::ranges::sort(replies);
    claims.push_back(std::move(replies));
    for (auto more = TakeSettled(); !more.empty(); more = TakeSettled()) {
        settled.insert(settled.end(), more.begin(), more.end());
    }
    if (claims.size() > kMostClaims) {
        claims.pop_front();
    }
    return settled;
}

/// Finds replies for which as many requests have ended as there are replies, and that no other of
/// these requests can have had. Removes both.
/// @return these replies; none if there are no such
std::vector<std::uint64_t> ReplyClaims::TakeSettled() {
    const auto found = std::ranges::find_if(claims, [this](const Claim& all) {
        const auto isWithin = [&](const Claim& claim) { return std::ranges::includes(all, claim); };
        return static_cast<std::size_t>(std::ranges::count_if(claims, isWithin)) >= all.size();
    });
    if (found == claims.end()) {
        return {};
    }
    const Claim settled = *found;
    for (Claim& claim : claims) {
        std::erase_if(
            claim, [&](std::uint64_t reply) { return std::ranges::binary_search(settled, reply); });
    }
    std::erase_if(claims, [](const Claim& claim) { return claim.empty(); });
    return settled;
}

}  // namespace tavrik
