#include "doctor/log/ReplyClaims.h"

#include <algorithm>
#include <cstddef>
#include <utility>

namespace tavrik {

namespace {

// Beyond these, replies stay possible for other requests, which is not wrong.
constexpr std::size_t kMostClaims = 64;
constexpr std::size_t kMostRepliesOfClaim = 16;

}  // namespace

std::vector<std::uint64_t> ReplyClaims::Add(std::vector<std::uint64_t> replies) {
    std::vector<std::uint64_t> settled;
    std::ranges::sort(replies);
    replies.erase(std::unique(replies.begin(), replies.end()), replies.end());
    if (replies.size() > kMostRepliesOfClaim) {
        return settled;
    }
    claims.push_back(std::move(replies));
    for (auto more = TakeSettled(); !more.empty(); more = TakeSettled()) {
        settled.insert(settled.end(), more.begin(), more.end());
    }
    if (claims.size() > kMostClaims) {
        claims.pop_front();
    }
    return settled;
}

/// Finds replies to which as many of the requests are limited as there are replies: these requests
/// have them all. Removes both.
/// @return these replies, or none
std::vector<std::uint64_t> ReplyClaims::TakeSettled() {
    const auto found = std::ranges::find_if(claims, [this](const Claim& all) {
        const auto isWithin = [&](const Claim& claim) { return std::ranges::includes(all, claim); };
        return static_cast<std::size_t>(std::ranges::count_if(claims, isWithin)) >= all.size();
    });
    if (found == claims.end()) {
        return {};
    }
    Claim settled = *found;
    for (Claim& claim : claims) {
        std::erase_if(
            claim, [&](std::uint64_t reply) { return std::ranges::binary_search(settled, reply); });
    }
    std::erase_if(claims, [](const Claim& claim) { return claim.empty(); });
    return settled;
}

}  // namespace tavrik
