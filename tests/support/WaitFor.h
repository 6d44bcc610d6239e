#pragma once

#include <chrono>
#include <functional>

namespace support {

/// Far longer than any test needs on a busy machine under a sanitizer.
inline constexpr std::chrono::seconds kPatience{20};

/// Checks `condition` every millisecond.
/// @return whether it became true within `limit`
bool WaitFor(const std::function<bool()>& condition, std::chrono::milliseconds limit = kPatience);

/// Runs `action` on its own thread, so that a hang makes the test fail instead of never ending. An
/// `action` that hangs keeps running after the test, so it must own everything that it uses.
/// @return whether it returned within `limit`
bool EndsWithin(std::chrono::milliseconds limit, std::function<void()> action);

/// @return how long `action` took
std::chrono::milliseconds Measure(const std::function<void()>& action);

}  // namespace support
