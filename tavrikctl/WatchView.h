#pragma once

#include <chrono>
#include <deque>
#include <string>
#include <vector>

#include "client/GripperMonitor.h"
#include "tavrikctl/Printer.h"

namespace tavrik {

// The rows of "watch" without a screen.

enum class RowForm { Aligned, Csv, Json };

/// The line above the rows; empty if there is none.
std::string WatchHeader(RowForm form);

/// @param time of the observation: time of day in aligned rows, otherwise with the date
std::string WatchRow(RowForm form, const Observation& observation,
                     std::chrono::system_clock::time_point time);

/// How far the values can be trusted, in one word: "fresh"; "unasked" if the master was not asked
/// whether it answers; "zero" if there may be no process data; "silent" or "frozen" if the master
/// does not answer; "none".
std::string ValuesWord(const Observation& observation);

/// The screen of "watch", as text.
class WatchView {
public:
    /// @param title,server the left and the right of the first line
    WatchView(std::string title, std::string server)
        : title(std::move(title)), server(std::move(server)) {}

    void Add(const Observation& observation);

    /// "fresh", or why the values of the observation are not.
    static std::string ValuesText(const Observation& observation);

    /// Lines of up to `width` characters, `height` of them at most.
    std::vector<Cell> Render(std::size_t width, std::size_t height) const;

private:
    Cell TitleLine(std::size_t width) const;
    std::string CallRateText() const;
    void AddValues(std::vector<Cell>& lines) const;
    Cell BarLine(std::size_t width) const;
    void AddPlot(std::vector<Cell>& lines, std::size_t width, std::size_t rows) const;
    double Share(double position) const;

    const std::string title;
    const std::string server;
    std::deque<Observation> history;  // as long as the plot
    double low = 0;                   // the scale covers all positions seen
    double high = 1;
};

}  // namespace tavrik
