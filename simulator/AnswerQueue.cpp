#include "simulator/AnswerQueue.h"

#include <algorithm>
#include <utility>

namespace simulator {

namespace {
constexpr std::chrono::milliseconds kPauseBetweenPieces{1};
}

void AnswerQueue::Push(std::string text, TimePoint due) {
    const auto firstFree = entries.begin() + (InsideText() ? 1 : 0);
    const auto place = std::find_if(firstFree, entries.end(),
                                    [due](const Entry& entry) { return entry.due > due; });
    entries.insert(place, Entry{due, std::move(text)});
}

std::string AnswerQueue::Pop(TimePoint now) {
    if (entries.empty() || entries.front().due > now) {
        return {};
    }
    Entry& first = entries.front();
    if (pieceLength == 0 || first.text.size() <= pieceLength) {
        std::string whole = std::move(first.text);
        entries.pop_front();
        return whole;
    }
    std::string piece = first.text.substr(0, pieceLength);
    first.text.erase(0, pieceLength);
    first.begun = true;
    first.due = now + kPauseBetweenPieces;
    return piece;
}

std::optional<TimePoint> AnswerQueue::NextDue() const {
    if (entries.empty()) {
        return std::nullopt;
    }
    return entries.front().due;
}

}  // namespace simulator
