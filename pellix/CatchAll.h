#pragma once

#include <exception>
#include <memory>
#include <optional>
#include <string>

namespace pellix {

/// Runs `action` and catches whatever it throws. A failed tty open throws a pointer to an
/// exception, which is deleted here.
/// @return nothing if `action` returned, otherwise the text of the exception
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
