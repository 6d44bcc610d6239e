#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace tavrikctl {

/// Printable `text` in lines of at most `width` (2 or more) columns, broken at blanks, and within
/// words that are longer. At least one line.
std::vector<std::string> Wrap(const std::string& text, std::size_t width);

}  // namespace tavrikctl
