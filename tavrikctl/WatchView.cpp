#include "tavrikctl/WatchView.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <tuple>

#include "client/Printable.h"
#include "client/Values.h"
#include "tavrikctl/ScreenParts.h"
#include "tavrikctl/WatchRows.h"

namespace tavrik {

namespace {

using Seconds = std::chrono::duration<double>;

constexpr std::chrono::seconds kPlotTime(30);
constexpr std::size_t kAxisWidth = 9;  // "-327.68 |"
constexpr std::size_t kMostPlotRows = 12;
constexpr std::size_t kFewestPlotRows = 3;

/// The oldest observation that is at most `age` older than the latest.
std::deque<Observation>::const_iterator Since(const std::deque<Observation>& history,
                                              std::chrono::seconds age) {
    return std::find_if(history.begin(), history.end(), [&](const Observation& each) {
        return history.back().time - each.time <= age;
    });
}

std::string FlagsText(const std::optional<ProcessData>& data) {
    return data ? data->FlagText("none") : "-";
}

std::string SecondsText(Observation::Clock::duration time) {
    return std::to_string(std::chrono::round<std::chrono::seconds>(time).count()) + " s";
}

}  // namespace

void WatchView::Add(const Observation& observation) {
    history.push_back(observation);
    history.erase(history.cbegin(), Since(history, kPlotTime));
    if (observation.data) {
        low = std::min(low, observation.data->position);
        high = std::max(high, observation.data->position);
    }
}

std::string WatchView::ValuesText(const Observation& observation, TimePoint now) {
    if (IsOverdue(observation, now)) {
        return "old: the daemon has not answered for " + SecondsText(now - observation.time);
    }
    if (!observation.data) {
        return observation.error;
    }
    if (observation.silentSince) {
        return std::string(observation.frozen ? "frozen: " : "changing, but ") +
               "the master has not answered for " +
               SecondsText(observation.time - *observation.silentSince);
    }
    if (!observation.data->certain) {
        return "all zero: possibly no process data";
    }
    return observation.probed ? "fresh" : "possibly old: the master was not polled";
}

std::vector<StyledText> WatchView::Render(std::size_t width, std::size_t height,
                                          TimePoint now) const {
    std::vector<StyledText> lines = TitleLines(title, server, width);
    const bool isWide = !history.empty() && Width(PositionLine()) <= width;
    if (history.empty()) {
        lines.push_back({""});
        AddWrapped(lines, "waiting for the daemon", width);
    } else if (isWide) {
        AddWideValues(lines, width, now);
    } else {
        AddNarrowValues(lines, width, now);
    }
    constexpr std::size_t kLinesBelow = 3;  // axis, blank line, help
    if (const std::string bar = history.empty() ? "" : BarLine(width); !bar.empty()) {
        lines.push_back({""});
        lines.push_back({bar});
        if (height > lines.size() + kFewestPlotRows + kLinesBelow) {
            lines.push_back({""});
            AddPlot(lines, width, std::min(height - lines.size() - kLinesBelow, kMostPlotRows));
        }
    }
    lines.push_back({""});
    lines.push_back({kHelpLine});
    return Cropped(lines, width, height);
}

std::string WatchView::PositionLine() const {
    const auto& data = history.back().data;
    return "position  " + AlignRight(data ? HundredthsText(data->position) : "-", 7) +
           "   state  " + AlignRight(data ? std::to_string(data->state) : "-", 2) + "   " +
           CallRateText();
}

void WatchView::AddWideValues(std::vector<StyledText>& lines, std::size_t width,
                              TimePoint now) const {
    constexpr std::size_t kLabelWidth = 10;
    const Observation& latest = history.back();
    lines.push_back({""});
    lines.push_back({PositionLine()});
    for (const auto& [label, text, alarming] :
         {std::tuple("flags", FlagsText(latest.data), latest.data && latest.data->HasFlags()),
          std::tuple("values", ValuesText(latest, now), AreValuesAlarming(now))}) {
        std::vector<StyledText> wrapped;
        AddWrapped(wrapped, text, width - kLabelWidth, alarming);
        for (StyledText& line : wrapped) {
            line.text = AlignLeft(&line == &wrapped.front() ? label : "", kLabelWidth) + line.text;
        }
        lines.insert(lines.end(), wrapped.begin(), wrapped.end());
    }
}

/// The most important first: the other lines may not fit.
void WatchView::AddNarrowValues(std::vector<StyledText>& lines, std::size_t width,
                                TimePoint now) const {
    const Observation& latest = history.back();
    const auto& data = latest.data;
    if (data) {
        AddWrapped(lines,
                   HundredthsText(data->position) + " in state " + std::to_string(data->state),
                   width);
    }
    const std::string word = IsOverdue(latest, now) ? "old" : ValuesWord(latest);
    AddWrapped(lines, "values " + word, width, AreValuesAlarming(now));
    AddWrapped(lines, data ? "flags " + FlagsText(data) : Printable(latest.error), width,
               !data || data->HasFlags());
}

bool WatchView::AreValuesAlarming(TimePoint now) const {
    const Observation& latest = history.back();
    return !latest.data || latest.silentSince || IsOverdue(latest, now);
}

/// Over the last second.
std::string WatchView::CallRateText() const {
    const Observation& from = *Since(history, std::chrono::seconds(1));
    const Observation& to = history.back();
    const double seconds = Seconds(to.time - from.time).count();
    const auto calls = static_cast<double>(to.calls - from.calls);
    return AlignRight(seconds > 0 ? std::to_string(std::lround(calls / seconds)) : "-", 3) +
           " calls/s";
}

/// Empty if there is no room for it.
std::string WatchView::BarLine(std::size_t width) const {
    constexpr std::size_t kShortestBar = 5;
    const std::string left = HundredthsText(low) + " ";
    const std::string right = " " + HundredthsText(high);
    const std::size_t labels = left.size() + right.size();
    if (width < labels + kShortestBar) {
        return "";
    }
    const auto& data = history.back().data;
    return left + Bar(data ? Share(data->position) : 0, width - labels) + right;
}

/// Each column shows an equal part of the time, with a mark in the row of each position in it.
void WatchView::AddPlot(std::vector<StyledText>& lines, std::size_t width, std::size_t rows) const {
    const std::size_t columns = std::max(width, kAxisWidth + 1) - kAxisWidth;
    const auto slotTime = Seconds(kPlotTime) / static_cast<double>(columns);
    const auto slot = [slotTime](const Observation& each) {
        return static_cast<long>(Seconds(each.time.time_since_epoch()) / slotTime);
    };
    std::vector<std::string> plot(rows, std::string(columns, ' '));
    for (const Observation& each : history) {
        const auto age = static_cast<std::size_t>(slot(history.back()) - slot(each));
        if (each.data && age < columns) {
            const auto fromBelow = static_cast<std::size_t>(
                std::lround(Share(each.data->position) * static_cast<double>(rows - 1)));
            plot[rows - 1 - fromBelow][columns - 1 - age] = '*';
        }
    }
    for (std::size_t row = 0; row < rows; ++row) {
        const std::string label = row == 0          ? HundredthsText(high)
                                  : row == rows - 1 ? HundredthsText(low)
                                                    : "";
        lines.push_back({AlignRight(label, kAxisWidth - 2) + " |" + plot[row]});
    }
    const std::string start = std::to_string(-kPlotTime.count()) + " s";
    lines.push_back({std::string(kAxisWidth, ' ') + start +
                     AlignRight("now", columns - std::min(columns, start.size()))});
}

/// The place of a position in the scale, 0 to 1.
double WatchView::Share(double position) const {
    return (position - low) / (high - low);
}

}  // namespace tavrik
