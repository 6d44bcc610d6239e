#pragma once

#include <chrono>
#include <functional>

namespace support {

/// Far more than anything here takes on a busy machine under a sanitizer.
inline constexpr std::chrono::seconds kPatience{20};

/// Looks at `condition` every millisecond until it holds.
/// @return whether it did within `limit`
bool WaitFor(const std::function<bool()>& condition, std::chrono::milliseconds limit = kPatience);

/// Runs `action` on a thread of its own. What comes to no end goes on behind the test's back, so
/// that a hang is a failure and not a test without a result: `action` owns all that it uses.
/// @return whether it came to its end within `limit`
bool EndsWithin(std::chrono::milliseconds limit, std::function<void()> action);

/// Runs `action`. @return how long it took
std::chrono::milliseconds Measure(const std::function<void()>& action);

}  // namespace support
