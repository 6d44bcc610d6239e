#pragma once

#include <cstddef>
#include <deque>
#include <string>
#include <utility>
#include <vector>

#include "client/CellMonitor.h"
#include "tavrikctl/Printer.h"

namespace tavrik {

/// The screen of "watch" for one gripper, as text.
class WatchView {
public:
    using TimePoint = Observation::Clock::time_point;

    /// @param title,server shown at the left and the right end of the first line
    WatchView(std::string title, std::string server)
        : title(std::move(title)), server(std::move(server)) {}

    void Add(const Observation& observation);

    /// "fresh", or why the values of the observation are not fresh.
    static std::string ValuesText(const Observation& observation, TimePoint now);

    /// At most `height` lines of at most `width` columns. A narrow screen shows only the values,
    /// and the last lines are left out if they do not fit.
    std::vector<StyledText> Render(std::size_t width, std::size_t height, TimePoint now) const;

private:
    std::string PositionLine() const;
    void AddWideValues(std::vector<StyledText>& lines, std::size_t width, TimePoint now) const;
    void AddNarrowValues(std::vector<StyledText>& lines, std::size_t width, TimePoint now) const;
    bool AreValuesAlarming(TimePoint now) const;
    std::string CallRateText() const;
    std::string BarLine(std::size_t width) const;
    void AddPlot(std::vector<StyledText>& lines, std::size_t width, std::size_t rows) const;
    double Share(double position) const;

    const std::string title;
    const std::string server;
    std::deque<Observation> history;  // as long as the plot
    double low = 0;                   // the scale covers all positions seen
    double high = 1;
};

}  // namespace tavrik
