#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "client/CellMonitor.h"
#include "tavrikctl/Printer.h"

namespace tavrik {

// What the screens of "watch" have in common. Texts are printable.

constexpr const char* kHelpLine = "q: quit";

/// Whether the daemon's last answer is so old at `now` that the values may have changed.
bool IsOverdue(const Observation& latest, Observation::Clock::time_point now);

/// A bar of `width` columns with its brackets, of which the part `share`, 0 to 1, is filled.
std::string Bar(double share, std::size_t width);

/// The first line of a screen, with `right` if there is room for it; more lines if `left` alone is
/// wider than the screen.
std::vector<StyledText> TitleLines(const std::string& left, const std::string& right,
                                   std::size_t width);

/// Adds `text` as one line, or wrapped if it is wider than `width` columns.
void AddWrapped(std::vector<StyledText>& lines, const std::string& text, std::size_t width,
                bool alarming = false);

/// Keeps the first `height` lines and their first `width` columns, for screens that are too small
/// for any layout.
std::vector<StyledText> Cropped(std::vector<StyledText> lines, std::size_t width,
                                std::size_t height);

}  // namespace tavrik
