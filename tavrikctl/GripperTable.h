#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace tavrik {

/// What the table of grippers shows of one, as printable text.
struct GripperRow {
    std::string name;
    std::string state;
    std::string position;
    std::string flags;   ///< "none" or "-" if there are none
    std::string values;  ///< see ValuesWord()
    std::string age;
    double share;   ///< filled part of the position bar, 0 to 1
    bool alarming;  ///< needs attention
};

/// A table of grippers, laid out. All lines are equally wide.
struct GripperTable {
    std::string titles;  ///< empty if there is no room for them
    std::vector<std::string> rows;
};

/// Lays `rows` out in `width` columns: leaves out the bar first, then the least important columns,
/// and shortens names to serial numbers. Truncates no text: if `width` is below 20, lines may be
/// wider.
GripperTable LayOut(const std::vector<GripperRow>& rows, std::size_t width);

}  // namespace tavrik
