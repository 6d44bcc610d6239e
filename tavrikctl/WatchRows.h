#pragma once

#include <chrono>
#include <cstddef>
#include <string>

#include "client/CellMonitor.h"

namespace tavrik {

// The rows of "watch" without a screen.

enum class RowForm { Aligned, Csv, Json };

/// The line above the rows; empty if there is none.
/// @param nameWidth columns of the longest name, for aligned rows
std::string WatchHeader(RowForm form, std::size_t nameWidth);

/// @param time of the observation; printed without the date in aligned rows, otherwise with the
/// date and the offset from UTC
std::string WatchRow(RowForm form, const Observation& observation,
                     std::chrono::system_clock::time_point time, std::size_t nameWidth);

/// Whether the values are current, in one word: "fresh"; "unasked" if the master was not asked
/// whether it answers; "zero" if there may be no process data; "silent" if the master does not
/// answer, "frozen" if the values have not changed since either; "none" without values.
std::string ValuesWord(const Observation& observation);

}  // namespace tavrik
