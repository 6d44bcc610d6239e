#pragma once

#include <deque>
#include <string>
#include <vector>

#include "client/GripperMonitor.h"
#include "tavrikctl/Printer.h"

namespace tavrik {

/// The screen of "watch", as text.
class WatchView {
public:
    /// @param title,server what stands at the left and at the right of the first line
    WatchView(std::string title, std::string server);

    void Add(const Observation& observation);

    /// What the last observation says: "fresh", or why its values are not.
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

    const std::string name;
    const std::string server;
    std::deque<Observation> history;  // of the time that the plot shows
    double low = 0;                   // the scale holds all positions seen
    double high = 1;
};

}  // namespace tavrik
