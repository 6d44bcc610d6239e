#pragma once

#include <chrono>
#include <string>

#include "client/GripperMonitor.h"

namespace tavrik {

/// The rows of "watch" where there is no screen: aligned for people, CSV or JSON for programs.
class WatchRows {
public:
    enum class Form { Aligned, Csv, Json };
    explicit WatchRows(Form aForm) : form(aForm) {}

    /// The line above the rows; empty if there is none.
    std::string Header() const;

    /// @param now the time of the observation: of the day in aligned rows, else with the date
    std::string Row(const Observation& observation,
                    std::chrono::system_clock::time_point now) const;

    /// How far the values can be trusted, in one word: "fresh"; "unasked", if the master was not
    /// asked whether it answers; "zero", if there are perhaps no process data; "silent" or
    /// "frozen", if the master does not answer; "none".
    static std::string ValuesWord(const Observation& observation);

private:
    static std::string CsvRow(const Observation& observation, const std::string& time);
    static std::string JsonRow(const Observation& observation, const std::string& time);
    static std::string AlignedRow(const Observation& observation, const std::string& time);

    Form form;
};

}  // namespace tavrik
