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

/// The screen of "watch" for all grippers, as text: a row each.
class CellView {
public:
    using TimePoint = Observation::Clock::time_point;

    /// @param server the right of the first line
    explicit CellView(std::string server) : server(std::move(server)) {}

    void Add(const Observation& observation);

    /// Lines of up to `width` columns, `height` of them at most. A narrow screen has fewer columns;
    /// on a low one, grippers without trouble are left out and counted.
    std::vector<StyledText> Render(std::size_t width, std::size_t height, TimePoint now) const;

private:
    struct Gripper {
        Observation latest;
        std::optional<TimePoint> current = {};  // when its values were last known to be current
        double low = 0;                         // the bar covers all positions seen
        double high = 1;
    };

    static GripperRow RowOf(const Gripper& gripper, TimePoint now);

    /// The rows with what else there is room for.
    std::vector<StyledText> Surround(const std::vector<StyledText>& rows, const std::string& titles,
                                     std::size_t width, std::size_t height) const;

    /// Each distinct reason why there is no data, once.
    std::vector<std::string> Reasons() const;

    const std::string server;
    std::vector<Gripper> grippers;  // in the order of their first observations
};

}  // namespace tavrik
