#include "tavrikctl/LogView.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <string_view>

#include "client/Printable.h"

namespace tavrik {

namespace {

constexpr std::size_t kNarrowLog = 60;      // columns; below, the text has lines of its own
constexpr std::size_t kWidthForBoth = 100;  // columns for master and gripper
constexpr const char* kSeparator = "  ";

std::string Counted(std::uint64_t count, const std::string& one, const std::string& several) {
    return std::to_string(count) + " " + (count == 1 ? one : several);
}

std::string NameOf(const std::string& name) {
    return name.empty() ? "unknown gripper" : Printable(name);
}

std::string SummaryOf(const LogSummary::Gripper& gripper) {
    std::string text = Counted(gripper.calls, "call", "calls") + ", " +
                       std::to_string(gripper.refusals) + " refused, " +
                       std::to_string(gripper.timeouts) + " timed out";
    if (gripper.slowest) {
        text += ", slowest answer " + LogDuration(*gripper.slowest, gripper.isExact);
    }
    return text;
}

}  // namespace

std::vector<std::string> LogView::Lines(const LogRow& row) {
    std::vector<std::string> lines;
    if (!row.stamp.date.empty() && row.stamp.date != date) {
        date = row.stamp.date;
        lines.push_back(date);
    }
    const bool isNarrow = columns != 0 && columns < kNarrowLog;
    for (std::string& line : isNarrow ? NarrowLines(row) : WideLines(row)) {
        lines.push_back(std::move(line));
    }
    return lines;
}

std::vector<std::string> LogView::WideLines(const LogRow& row) {
    const std::string master = LogMaster(row);
    std::string owner = LogGripper(row);
    std::string head = LogMark(row) + " " + LogClock(row) + kSeparator;
    if (ShowsMaster()) {
        masterWidth = std::max(masterWidth, Width(master));
        head += AlignLeft(master, masterWidth) + kSeparator;
    } else if (owner.empty()) {
        owner = master;
    }
    ownerWidth = std::max(ownerWidth, Width(owner));
    head += AlignLeft(owner, ownerWidth) + kSeparator;
    const std::string text = LogText(row);
    const std::size_t width = Width(head);
    if (columns == 0 || width + Width(text) <= columns) {
        return {head + text};
    }
    constexpr std::size_t kMinTextWidth = 20;  // columns
    if (width + kMinTextWidth > columns) {
        return NarrowLines(row);
    }
    std::vector<std::string> lines = Wrap(text, columns - width);
    for (std::string& line : lines) {
        line.insert(0, &line == &lines.front() ? head : std::string(width, ' '));
    }
    return lines;
}

/// Master and gripper first, the text below.
std::vector<std::string> LogView::NarrowLines(const LogRow& row) const {
    const std::string gripper = LogGripper(row);
    const std::string head = LogClock(row) + " " + (gripper.empty() ? LogMaster(row) : gripper);
    std::vector<std::string> lines;
    for (const std::string& part : {head, LogText(row)}) {
        for (const std::string& line : Wrap(part, columns - 2)) {
            lines.push_back((lines.empty() ? LogMark(row) + " " : kSeparator) + line);
        }
    }
    return lines;
}

bool LogView::ShowsMaster() const {
    return columns == 0 || columns >= kWidthForBoth;
}

std::vector<std::string> LogView::Lines(const LogSummary& summary) const {
    std::vector<std::string> parts{
        Counted(summary.lines, "line", "lines") + ": " +
        Counted(summary.starts, "start of the daemon", "starts of the daemon") + ", " +
        Counted(summary.plugged, "master", "masters") + " plugged in, " +
        std::to_string(summary.unplugged) + " unplugged, " +
        Counted(summary.reopened, "attempt", "attempts") + " to reopen a tty"};
    for (const auto& [name, gripper] : summary.grippers) {
        parts.push_back(NameOf(name) + ": " + SummaryOf(gripper));
    }
    std::vector<std::string> lines;
    for (const std::string& part : parts) {
        const auto wrapped = columns == 0 ? std::vector{part} : Wrap(part, columns);
        lines.insert(lines.end(), wrapped.begin(), wrapped.end());
    }
    return lines;
}

nlohmann::ordered_json JsonOf(const LogRow& row) {
    const auto textOrNull = [](const std::string& text) {
        return text.empty() ? nlohmann::ordered_json() : nlohmann::ordered_json(text);
    };
    const std::string time =
        (row.stamp.date.empty() ? "" : row.stamp.date + "T") + row.stamp.clock + row.stamp.zone;
    nlohmann::ordered_json object{{"time", textOrNull(time)},
                                  {"kind", KindText(row.kind)},
                                  {"alarming", IsAlarming(row)},
                                  {"master", textOrNull(row.owner.node)},
                                  {"gripper", textOrNull(row.owner.gripper)}};
    if (!row.owner.IsKnown() && row.thread) {
        object["thread"] = *row.thread;
        object["candidates"] = row.owner.candidates;
        object["likely"] = textOrNull(row.owner.likely);
    }
    if (!row.call) {
        object["text"] = row.text;
        return object;
    }
    const LoggedCall& call = *row.call;
    object["method"] = textOrNull(call.method);
    object["request"] = textOrNull(call.request);
    object["status"] = call.status ? nlohmann::ordered_json(*call.status) : nullptr;
    object["note"] = textOrNull(call.note);
    object["milliseconds"] = nullptr;
    if (call.duration) {
        constexpr double kMillisecond = 1000;
        object["milliseconds"] = static_cast<double>(call.duration->count()) / kMillisecond;
        object["exact"] = call.isExact;
    }
    return object;
}

nlohmann::ordered_json JsonOf(const LogSummary& summary) {
    auto grippers = nlohmann::ordered_json::array();
    for (const auto& [name, gripper] : summary.grippers) {
        nlohmann::ordered_json object{{"gripper", nullptr},
                                      {"calls", gripper.calls},
                                      {"refusals", gripper.refusals},
                                      {"timeouts", gripper.timeouts},
                                      {"slowestMilliseconds", nullptr}};
        if (!name.empty()) {
            object["gripper"] = name;
        }
        if (gripper.slowest) {
            constexpr double kMillisecond = 1000;
            object["slowestMilliseconds"] =
                static_cast<double>(gripper.slowest->count()) / kMillisecond;
            object["exact"] = gripper.isExact;
        }
        grippers.push_back(object);
    }
    return {{"kind", "summary"},
            {"lines", summary.lines},
            {"starts", summary.starts},
            {"plugged", summary.plugged},
            {"unplugged", summary.unplugged},
            {"reopened", summary.reopened},
            {"grippers", grippers}};
}

}  // namespace tavrik
