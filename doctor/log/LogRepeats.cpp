#include "doctor/log/LogRepeats.h"

#include <algorithm>
#include <utility>

namespace tavrik {

namespace {

constexpr std::chrono::seconds kPause(10);  // what comes later is shown again
constexpr std::size_t kMostTexts = 8;
constexpr std::size_t kMostOwners = 256;

}  // namespace

void LogRepeats::Take(const LogRow& row, std::chrono::microseconds time) {
    if (owners.size() >= kMostOwners) {
        Flush();
        owners.clear();
    }
    Recent& recent = owners[row.owner.Name()];
    if (time - recent.last > kPause) {
        Report(recent);
        recent.texts.clear();
    }
    recent.last = time;
    const std::string& text = row.call ? row.call->method : row.text;
    if (std::ranges::find(recent.texts, text) == recent.texts.end()) {
        Report(recent);
        recent.texts.push_back(text);
        if (recent.texts.size() > kMostTexts) {
            recent.texts.pop_front();
        }
        sink(row);
        return;
    }
    if (recent.count++ == 0) {
        recent.reported = time;
    }
    recent.row = row;
    if (time - recent.reported >= kPause) {
        Report(recent);
    }
}

void LogRepeats::Flush(const LogRow& next) {
    const auto recent = owners.find(next.owner.Name());
    if (recent != owners.end()) {
        Report(recent->second);
    }
}

void LogRepeats::Flush(std::chrono::microseconds time, std::chrono::microseconds pause) {
    for (auto& [owner, recent] : owners) {
        if (time - recent.last >= pause) {
            Report(recent);
        }
    }
}

void LogRepeats::Flush() {
    for (auto& [owner, recent] : owners) {
        Report(recent);
    }
}

void LogRepeats::Report(Recent& recent) {
    const std::uint64_t count = std::exchange(recent.count, 0);
    if (count == 1) {
        sink(recent.row);
    } else if (count > 1) {
        recent.row.kind = LogKind::Problem;
        recent.row.call.reset();
        recent.row.text = std::to_string(count) + " more " + name + " like those above";
        sink(recent.row);
    }
}

}  // namespace tavrik
