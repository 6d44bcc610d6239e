#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "client/CellMonitor.h"
#include "tavrikctl/GripperTable.h"
#include "tavrikctl/Printer.h"

namespace tavrik {

/// The screen of "watch" for all grippers, as text: a row for each.
class CellView {
public:
    using TimePoint = Observation::Clock::time_point;

    /// @param server shown at the right end of the first line
    explicit CellView(std::string server) : server(std::move(server)) {}

    void Add(const Observation& observation);

    /// At most `height` lines of at most `width` columns. A narrow screen has fewer columns of the
    /// table; a low one counts the grippers that it leaves out, those without alarms first.
    std::vector<StyledText> Render(std::size_t width, std::size_t height, TimePoint now) const;

private:
    struct Gripper {
        Observation latest;
        std::optional<TimePoint> current = {};  // when its values were last known to be current
        double low = 0;                         // the bar covers all positions seen
        double high = 1;
    };

    static GripperRow RowOf(const Gripper& gripper, TimePoint now);

    /// The rows, and the titles, reasons and help that fit as well.
    std::vector<StyledText> Surround(const std::vector<StyledText>& rows, const std::string& titles,
                                     std::size_t width, std::size_t height) const;

    /// The reasons why data is missing, each once.
    std::vector<std::string> Reasons() const;

    const std::string server;
    std::vector<Gripper> grippers;  // in the order of their first observations
};

}  // namespace tavrik
