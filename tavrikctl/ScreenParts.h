#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "client/CellMonitor.h"
#include "tavrikctl/Printer.h"

namespace tavrik {

// What the screens of "watch" have in common. Texts are printable.

constexpr const char* kHelpLine = "q: quit";

/// Whether the daemon has not answered for so long at the time `now` that the values of its latest
/// observation may be old.
bool IsOverdue(const Observation& latest, Observation::Clock::time_point now);

/// A bar in brackets, `width` columns together, filled up to the share `share`, 0 to 1.
std::string Bar(double share, std::size_t width);

/// The first line of a screen, with `right` if there is room for it; more lines if `left` alone is
/// wider than the screen.
std::vector<StyledText> TitleLines(const std::string& left, const std::string& right,
                                   std::size_t width);

/// Adds `text` in lines of at most `width` columns, broken at blanks only where it must be.
void AddWrapped(std::vector<StyledText>& lines, const std::string& text, std::size_t width,
                bool alarming = false);

/// Keeps the first `height` lines and, for screens too narrow for any layout, the first `width`
/// columns of them.
std::vector<StyledText> Cropped(std::vector<StyledText> lines, std::size_t width,
                                std::size_t height);

}  // namespace tavrik
