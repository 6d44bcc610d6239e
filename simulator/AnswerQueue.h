#pragma once

#include <chrono>
#include <cstddef>
#include <deque>
#include <optional>
#include <string>

namespace simulator {

using Clock = std::chrono::steady_clock;
using TimePoint = Clock::time_point;

/// What a master has to say, in the order in which it becomes due, cut into pieces where asked.
///
/// A piece is what one write carries; between two pieces of one text there is a pause of 1 ms, and
/// nothing else is said until the last of them is out.
class AnswerQueue {
public:
    /// Cuts texts into pieces of at most `length` bytes; 0 leaves them whole.
    void SetPieceLength(std::size_t length) { pieceLength = length; }

    void Push(std::string text, TimePoint due);

    /// @return the next piece that is due at `now`, empty when there is none.
    std::string Pop(TimePoint now);

    /// True between the first and the last piece of a text.
    bool InsideText() const { return !entries.empty() && entries.front().begun; }

    std::optional<TimePoint> NextDue() const;
    void Clear() { entries.clear(); }

private:
    struct Entry {
        TimePoint due;
        std::string text;
        bool begun = false;
    };

    std::deque<Entry> entries;
    std::size_t pieceLength = 0;
};

}  // namespace simulator
