#pragma once

#include <exception>
#include <memory>
#include <optional>
#include <string>

namespace pellix {

/// Runs `action` and stops whatever it throws. A failed tty open throws a pointer to an exception:
/// that is destroyed here.
/// @return nothing when `action` came to its end, otherwise what the exception says of itself
template <typename Action>
std::optional<std::string> CatchAll(Action action) {
    try {
        action();
        return std::nullopt;
    } catch (const std::exception& exception) {
        return exception.what();
    } catch (std::exception* exception) {  // NOLINT(misc-throw-by-value-catch-by-reference)
        return std::unique_ptr<std::exception>(exception)->what();
    } catch (...) {
        return "unknown exception";
    }
}

}  // namespace pellix
