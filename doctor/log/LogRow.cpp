#include "doctor/log/LogRow.h"

#include <array>
#include <cstdio>
#include <string_view>
#include <vector>

#include "client/Printable.h"

namespace tavrik {

namespace {

using std::chrono::microseconds;
using Parts = std::vector<std::string>;

constexpr const char* kSeparator = "  ";

std::string Joined(const Parts& parts, const std::string& between) {
    std::string joined;
    for (const std::string& part : parts) {
        joined += (joined.empty() || part.empty() ? "" : between) + part;
    }
    return joined;
}

std::string CallText(const LoggedCall& call) {
    return Joined({call.method, call.request, call.status ? std::to_string(*call.status) : "",
                   call.note, call.duration ? LogDuration(*call.duration, call.isExact) : ""},
                  kSeparator);
}

}  // namespace

bool IsAlarming(const LogRow& row) {
    return row.kind == LogKind::Problem ||
           (row.call && row.call->outcome != LoggedCall::Outcome::Done);
}

std::string LogDuration(microseconds duration, bool isExact) {
    constexpr double kMillisecond = 1000;
    constexpr microseconds kFine = std::chrono::milliseconds(10);
    if (!isExact) {
        const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(duration).count();
        return seconds == 0 ? "<1 s" : "~" + std::to_string(seconds) + " s";
    }
    std::array<char, 40> text{};
    std::snprintf(text.data(), text.size(), duration < kFine ? "%.1f ms" : "%.0f ms",
                  static_cast<double>(duration.count()) / kMillisecond);
    return text.data();
}

std::string LogText(const LogRow& row) {
    std::string text = row.call ? CallText(*row.call) : row.text;
    if (!row.owner.candidates.empty()) {
        text += " (" + Joined(row.owner.candidates, " or ") + ")";
    }
    return Printable(text);
}

std::string LogMark(const LogRow& row) {
    return IsAlarming(row) ? "!" : row.kind == LogKind::Event ? "*" : " ";
}

std::string LogClock(const LogRow& row) {
    constexpr std::size_t kSize = 12;
    return row.stamp.clock.substr(0, kSize);
}

std::string LogMaster(const LogRow& row) {
    const std::string& node = row.owner.node;
    return Printable(node.starts_with("/dev/") ? node.substr(std::string_view("/dev/").size())
                                               : node);
}

std::string LogGripper(const LogRow& row) {
    if (!row.owner.gripper.empty()) {
        return Printable(row.owner.gripper);
    }
    if (!row.owner.likely.empty()) {
        return Printable(row.owner.likely) + "?";
    }
    if (row.isOfDaemon) {
        return "daemon";
    }
    const bool isUnknown = row.thread && row.owner.node.empty();
    return isUnknown ? "? " + std::to_string(*row.thread) : "";
}

}  // namespace tavrik
