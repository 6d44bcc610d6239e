#include "tavrikctl/WatchView.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <nlohmann/json.hpp>
#include <utility>

#include "client/Printable.h"
#include "client/Values.h"

namespace tavrik {

namespace {

using Seconds = std::chrono::duration<double>;

constexpr std::chrono::seconds kPlotTime(30);
constexpr std::size_t kAxisWidth = 9;  // "-327.68 |"
constexpr std::size_t kMostPlotRows = 12;
constexpr std::size_t kFewestPlotRows = 3;

std::string Right(const std::string& text, std::size_t width) {
    return std::string(width - std::min(width, Width(text)), ' ') + text;
}

/// The oldest of `history` that is not older than `age` before the latest.
std::deque<Observation>::const_iterator Since(const std::deque<Observation>& history,
                                              std::chrono::seconds age) {
    return std::find_if(history.begin(), history.end(), [&](const Observation& each) {
        return history.back().time - each.time <= age;
    });
}

/// Local time in `format`, with milliseconds.
std::string LocalTime(std::chrono::system_clock::time_point time, const char* format) {
    using std::chrono::milliseconds;
    const auto sinceEpoch = std::chrono::floor<milliseconds>(time.time_since_epoch());
    const auto fraction = sinceEpoch % std::chrono::seconds(1);
    const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
    std::tm parts{};
    localtime_r(&seconds, &parts);
    std::array<char, 32> whole{};
    std::strftime(whole.data(), whole.size(), format, &parts);
    std::array<char, 8> rest{};
    std::snprintf(rest.data(), rest.size(), ".%03d", static_cast<int>(fraction.count()));
    return std::string(whole.data()) + rest.data();
}

std::string CsvRow(const Observation& observation, const std::string& time) {
    std::string row = time + ",";
    if (const auto& data = observation.data) {
        row += std::to_string(data->state) + "," + HundredthsText(data->position);
        for (const bool flag : {data->fault, data->tempFault, data->tempWarn, data->maintenance}) {
            row += flag ? ",1" : ",0";
        }
    } else {
        row += ",,,,,";
    }
    return row + "," + ValuesWord(observation);
}

std::string JsonRow(const Observation& observation, const std::string& time) {
    nlohmann::ordered_json object{{"time", time}};
    if (observation.data) {
        observation.data->AddTo(object);
    }
    object["values"] = ValuesWord(observation);
    return object.dump();
}

std::string AlignedRow(const Observation& observation, const std::string& time) {
    const auto& data = observation.data;
    const std::string flags = data ? data->FlagText() : observation.error;
    std::array<char, 64> columns{};
    std::snprintf(columns.data(), columns.size(), "  %5s  %8s  %-6s  ",
                  data ? std::to_string(data->state).c_str() : "-",
                  data ? HundredthsText(data->position).c_str() : "-",
                  ValuesWord(observation).c_str());
    return time + columns.data() + (flags.empty() ? "none" : flags);
}

}  // namespace

std::string WatchHeader(RowForm form) {
    switch (form) {
        case RowForm::Csv:
            return "time,state,position,fault,temperature_fault,temperature_warning,maintenance,"
                   "values";
        case RowForm::Json:
            return "";
        default:
            return "TIME          STATE  POSITION  VALUES  FLAGS";
    }
}

std::string WatchRow(RowForm form, const Observation& observation,
                     std::chrono::system_clock::time_point time) {
    constexpr const char* kDateAndTime = "%FT%T";
    switch (form) {
        case RowForm::Csv:
            return CsvRow(observation, LocalTime(time, kDateAndTime));
        case RowForm::Json:
            return JsonRow(observation, LocalTime(time, kDateAndTime));
        default:
            return AlignedRow(observation, LocalTime(time, "%T"));
    }
}

std::string ValuesWord(const Observation& observation) {
    if (!observation.data) {
        return "none";
    }
    if (observation.silentSince) {
        return observation.frozen ? "frozen" : "silent";
    }
    if (!observation.data->certain) {
        return "zero";
    }
    return observation.probed ? "fresh" : "unasked";
}

void WatchView::Add(const Observation& observation) {
    history.push_back(observation);
    history.erase(history.cbegin(), Since(history, kPlotTime));
    if (observation.data) {
        low = std::min(low, observation.data->position);
        high = std::max(high, observation.data->position);
    }
}

std::string WatchView::ValuesText(const Observation& observation) {
    if (!observation.data) {
        return observation.error;
    }
    if (observation.silentSince) {
        const auto silence =
            std::chrono::round<std::chrono::seconds>(observation.time - *observation.silentSince);
        return std::string(observation.frozen ? "frozen: " : "changing, but ") +
               "the master has not answered for " + std::to_string(silence.count()) + " s";
    }
    if (!observation.data->certain) {
        return "all zero: possibly no process data";
    }
    return observation.probed ? "fresh" : "possibly old: the master was not polled";
}

std::vector<Cell> WatchView::Render(std::size_t width, std::size_t height) const {
    std::vector<Cell> lines{TitleLine(width), {""}};
    if (history.empty()) {
        lines.push_back({"waiting for the daemon"});
    } else {
        AddValues(lines);
        lines.push_back({""});
        lines.push_back(BarLine(width));
    }
    constexpr std::size_t kLinesBelow = 3;  // axis, blank line, help
    if (!history.empty() && height > lines.size() + kFewestPlotRows + kLinesBelow) {
        lines.push_back({""});
        AddPlot(lines, width, std::min(height - lines.size() - kLinesBelow, kMostPlotRows));
    }
    lines.push_back({""});
    lines.push_back({"q: quit"});
    lines.resize(std::min(lines.size(), height));
    for (Cell& line : lines) {
        line.text = Cut(line.text, width);
    }
    return lines;
}

void WatchView::AddValues(std::vector<Cell>& lines) const {
    const Observation& latest = history.back();
    const auto& data = latest.data;
    const std::string flags = data ? data->FlagText() : "-";
    lines.push_back({"position  " + Right(data ? HundredthsText(data->position) : "-", 7) +
                     "   state  " + Right(data ? std::to_string(data->state) : "-", 2) + "   " +
                     CallRateText()});
    lines.push_back({"flags     " + (flags.empty() ? "none" : flags), data && !flags.empty()});
    lines.push_back({"values    " + ValuesText(latest), !data || latest.silentSince});
}

Cell WatchView::TitleLine(std::size_t width) const {
    return {title + " " + Right(server, width - std::min(width, Width(title) + 1))};
}

/// Over the last second.
std::string WatchView::CallRateText() const {
    const Observation& from = *Since(history, std::chrono::seconds(1));
    const Observation& to = history.back();
    const double seconds = Seconds(to.time - from.time).count();
    const auto calls = static_cast<double>(to.calls - from.calls);
    return Right(seconds > 0 ? std::to_string(std::lround(calls / seconds)) : "-", 3) + " calls/s";
}

Cell WatchView::BarLine(std::size_t width) const {
    const std::string left = HundredthsText(low) + " [";
    const std::string right = "] " + HundredthsText(high);
    const std::size_t room = width - std::min(width, left.size() + right.size());
    std::string bar(room, ' ');
    if (const auto& data = history.back().data) {
        const auto filled = std::lround(Share(data->position) * static_cast<double>(room));
        std::fill_n(bar.begin(), filled, '#');
    }
    return {left + bar + right};
}

/// A column holds the positions of an equal part of the time, each with a row of its own.
void WatchView::AddPlot(std::vector<Cell>& lines, std::size_t width, std::size_t rows) const {
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
        lines.push_back({Right(label, kAxisWidth - 2) + " |" + plot[row]});
    }
    const std::string start = std::to_string(-kPlotTime.count()) + " s";
    lines.push_back({std::string(kAxisWidth, ' ') + start +
                     Right("now", columns - std::min(columns, start.size()))});
}

/// Where a position stands in the scale, 0 to 1.
double WatchView::Share(double position) const {
    return (position - low) / (high - low);
}

}  // namespace tavrik
