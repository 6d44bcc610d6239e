#pragma once

#include <cstddef>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "doctor/log/LogRow.h"
#include "doctor/log/LogSummary.h"

namespace tavrik {

/// Lays out the rows of a log for a terminal or a file.
class LogView {
public:
    /// @param columns of the terminal; 0 if the output is not a terminal: each row is then one line
    explicit LogView(std::size_t columns) : columns(columns) {}

    /// The lines of a row, printable.
    std::vector<std::string> Lines(const LogRow& row);

    /// The lines of the summary.
    std::vector<std::string> Lines(const LogSummary& summary) const;

private:
    std::vector<std::string> WideLines(const LogRow& row);
    std::vector<std::string> NarrowLines(const LogRow& row) const;
    bool ShowsMaster() const;

    std::size_t columns;
    std::size_t masterWidth = 0;
    std::size_t ownerWidth = 0;
    std::string date;  // of the last row
};

nlohmann::ordered_json JsonOf(const LogRow& row);
nlohmann::ordered_json JsonOf(const LogSummary& summary);

}  // namespace tavrik
