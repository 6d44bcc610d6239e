#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

namespace simulator {

using Clock = std::chrono::steady_clock;
using TimePoint = Clock::time_point;
using Bytes = std::vector<std::uint8_t>;

/// Assembles lines from received bytes. Drops a line of more than 1024 bytes.
class LineAssembler {
public:
    /// @return the lines that `bytes` complete, without their line feeds
    std::vector<std::string> Add(std::string_view bytes);

    /// True if a line has begun, but not ended.
    bool InsideLine() const { return overlong || !partialLine.empty(); }

    void Clear();

private:
    std::string partialLine;
    bool overlong = false;
};

enum class RequestForm { Query, Assignment, Call };

/// A parsed request line: "PDOUT=[3,0]" is an assignment with the key "PDOUT" and the argument
/// "[3,0]"; a query has no argument.
struct Request {
    RequestForm form = RequestForm::Query;
    std::string key;
    std::string argument;
};

/// Index and subindex of "PARAM[index][subindex]".
struct ParameterKey {
    unsigned index = 0;
    unsigned subindex = 0;
    bool operator==(const ParameterKey&) const = default;
    bool operator<(const ParameterKey& other) const {
        return std::tie(index, subindex) < std::tie(other.index, other.subindex);
    }
};

/// Parses a line without its line feed.
/// @return nothing if it is not a request: a master does not answer such a line.
std::optional<Request> ParseRequest(std::string_view line);

/// Parses "PARAM[19][0]"; both numbers are decimal without leading zeros.
std::optional<ParameterKey> ParseParameterKey(std::string_view key);

/// Parses a decimal number without sign, leading zeros and blanks.
std::optional<unsigned> ParseNumber(std::string_view text);

/// Parses "[a,ff]" strictly: lower case, no leading zeros, no blanks.
std::optional<Bytes> ParseByteList(std::string_view text);

/// Formats "[a,ff]".
std::string FormatByteList(const Bytes& bytes);

/// The texts that a master sends, ordered by the time at which they are due, and optionally split
/// into pieces.
///
/// A piece is sent with one write. The pieces of a text are 1 ms apart; no other text is sent
/// between them.
class AnswerQueue {
public:
    /// Splits texts into pieces of at most `length` bytes; 0 for no splitting.
    void SetPieceLength(std::size_t length) { pieceLength = length; }

    void Push(std::string text, TimePoint due);

    /// @return the next piece that is due at `now`; empty if there is none.
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
