#include "tavrikctl/CellView.h"

#include <algorithm>
#include <chrono>
#include <functional>

#include "client/Printable.h"
#include "client/Values.h"
#include "tavrikctl/ScreenParts.h"
#include "tavrikctl/WatchRows.h"

namespace tavrik {

namespace {

std::string AgeText(const std::optional<CellView::TimePoint>& current, CellView::TimePoint now) {
    if (!current) {
        return "?";
    }
    return std::to_string(std::chrono::floor<std::chrono::seconds>(now - *current).count()) + " s";
}

/// The lines of a table that fit into `height`, alarming ones first, and how many are left out.
std::vector<StyledText> ChooseRows(std::vector<StyledText> lines, std::size_t height) {
    if (lines.size() <= height || height == 0) {
        return lines;
    }
    std::stable_partition(lines.begin(), lines.end(), std::mem_fn(&StyledText::alarming));
    const std::size_t hidden = lines.size() - (height - 1);
    lines.resize(height - 1);
    lines.push_back({std::to_string(hidden) + " more"});
    return lines;
}

/// The lines of a screen that are still free; the most important parts take theirs first.
class Room {
public:
    explicit Room(std::size_t lines) : lines(lines) {}

    /// Takes `count` lines if so many are free. @return whether they were
    bool Take(std::size_t count) {
        const bool fits = count <= lines;
        lines -= fits ? count : 0;
        return fits;
    }

private:
    std::size_t lines;
};

}  // namespace

void CellView::Add(const Observation& observation) {
    auto gripper = std::ranges::find(grippers, observation.gripper,
                                     [](const Gripper& each) { return each.latest.gripper; });
    if (gripper == grippers.end()) {
        gripper = grippers.insert(gripper, Gripper{observation});
    }
    gripper->latest = observation;
    if (const auto& data = observation.data; data && observation.probed) {
        gripper->current = observation.frozen ? *observation.silentSince : observation.time;
    }
    if (const auto& data = observation.data) {
        gripper->low = std::min(gripper->low, data->position);
        gripper->high = std::max(gripper->high, data->position);
    }
}

GripperRow CellView::RowOf(const Gripper& gripper, TimePoint now) {
    const Observation& latest = gripper.latest;
    const auto& data = latest.data;
    const bool isOverdue = IsOverdue(latest, now);
    return {Printable(latest.gripper),
            data ? std::to_string(data->state) : "-",
            data ? HundredthsText(data->position) : "-",
            data ? data->FlagText("none") : "-",
            isOverdue ? "old" : ValuesWord(latest),
            AgeText(gripper.current, now),
            data ? (data->position - gripper.low) / (gripper.high - gripper.low) : 0,
            isOverdue || !data || latest.silentSince || data->HasFlags()};
}

std::vector<std::string> CellView::Reasons() const {
    std::vector<std::string> reasons;
    for (const Gripper& gripper : grippers) {
        const std::string reason = Printable(gripper.latest.error);
        if (!reason.empty() && std::ranges::find(reasons, reason) == reasons.end()) {
            reasons.push_back(reason);
        }
    }
    return reasons;
}

std::vector<StyledText> CellView::Render(std::size_t width, std::size_t height,
                                         TimePoint now) const {
    std::vector<GripperRow> rows;
    for (const Gripper& gripper : grippers) {
        rows.push_back(RowOf(gripper, now));
    }
    const GripperTable table = LayOut(rows, width);
    std::vector<StyledText> lines;
    for (std::size_t i = 0; i < rows.size(); ++i) {
        lines.push_back({table.rows[i], rows[i].alarming});
    }
    return Cropped(Surround(ChooseRows(lines, height), table.titles, width, height), width, height);
}

std::vector<StyledText> CellView::Surround(const std::vector<StyledText>& rows,
                                           const std::string& titles, std::size_t width,
                                           std::size_t height) const {
    const std::string count = std::to_string(grippers.size()) + " grippers";
    const std::vector<StyledText> head =
        TitleLines(grippers.empty() ? "waiting for the daemon" : count, server, width);
    std::vector<StyledText> foot;
    for (const std::string& reason : Reasons()) {
        AddWrapped(foot, reason, width, true);
    }
    const std::vector<StyledText> blank(1);

    Room room(height - std::min(height, rows.size()));
    const bool hasTitles = !rows.empty() && !titles.empty() && room.Take(1);
    const bool hasHead = room.Take(head.size());
    const bool hasFoot = !foot.empty() && room.Take(foot.size());
    const bool hasHelp = room.Take(1);
    std::vector<StyledText> lines;
    const auto append = [&lines](bool fits, const std::vector<StyledText>& more) {
        lines.insert(lines.end(), more.begin(), fits ? more.end() : more.begin());
    };
    append(hasHead, head);
    append(hasHead && room.Take(1), blank);
    append(hasTitles, {StyledText{titles}});
    append(true, rows);
    append(hasFoot && room.Take(1), blank);
    append(hasFoot, foot);
    append(hasHelp && room.Take(1), blank);
    append(hasHelp, {StyledText{kHelpLine}});
    return lines;
}

}  // namespace tavrik
