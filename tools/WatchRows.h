#pragma once

#include <chrono>
#include <string>

#include "tools/GripperMonitor.h"

namespace tavrikctl {

/// The rows of "watch" where there is no screen: aligned for people, or CSV for programs.
class WatchRows {
public:
    explicit WatchRows(bool asCsv) : csv(asCsv) {}

    std::string Header() const;

    /// @param now the time of the observation: of the day in aligned rows, with the date in CSV
    std::string Row(const Observation& observation,
                    std::chrono::system_clock::time_point now) const;

    /// How far the values can be trusted, in one word: "fresh"; "zero", if there are perhaps no
    /// process data; "silent" or "frozen", if the master does not answer; "none".
    static std::string ValuesWord(const Observation& observation);

private:
    static std::string CsvRow(const Observation& observation, const std::string& time);
    static std::string AlignedRow(const Observation& observation, const std::string& time);

    bool csv;
};

}  // namespace tavrikctl
