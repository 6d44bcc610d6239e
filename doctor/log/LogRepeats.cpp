#include "doctor/log/LogRepeats.h"

#include <algorithm>
#include <utility>

namespace tavrik {

namespace {

constexpr std::chrono::seconds kPause(10);  // what comes later is told anew
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
        Tell(recent);
        recent.texts.clear();
    }
    recent.last = time;
    if (std::ranges::find(recent.texts, row.text) == recent.texts.end()) {
        Tell(recent);
        recent.texts.push_back(row.text);
        if (recent.texts.size() > kMostTexts) {
            recent.texts.pop_front();
        }
        sink(row);
        return;
    }
    if (recent.count++ == 0) {
        recent.told = time;
    }
    recent.row = row;
    if (time - recent.told >= kPause) {
        Tell(recent);
    }
}

void LogRepeats::Flush(std::chrono::microseconds time, std::chrono::microseconds pause) {
    for (auto& [name, recent] : owners) {
        if (time - recent.last >= pause) {
            Tell(recent);
        }
    }
}

void LogRepeats::Flush() {
    for (auto& [name, recent] : owners) {
        Tell(recent);
    }
}

void LogRepeats::Tell(Recent& recent) {
    const std::uint64_t count = std::exchange(recent.count, 0);
    if (count == 1) {
        sink(recent.row);
    } else if (count > 1) {
        recent.row.kind = LogKind::Trouble;
        recent.row.text = std::to_string(count) + " more lines like those above";
        sink(recent.row);
    }
}

}  // namespace tavrik
