#pragma once

#include <string>

namespace tavrikctl {

/// `text`, UTF-8, with a question mark for each control character: a device string must not steer
/// the terminal.
std::string Printable(const std::string& text);

/// How many characters of UTF-8 `text` has.
std::size_t Width(const std::string& text);

}  // namespace tavrikctl
