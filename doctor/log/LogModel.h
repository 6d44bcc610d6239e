#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "doctor/log/LogEntry.h"
#include "doctor/log/LogRepeats.h"
#include "doctor/log/LogRow.h"
#include "doctor/log/LogSummary.h"
#include "doctor/log/LoggedCalls.h"
#include "doctor/log/LoggedLinks.h"

namespace tavrik {

/// Makes rows for a person from the lines of the daemon's log. Its memory does not grow with the
/// log. Not thread-safe.
class LogModel {
public:
    using Sink = std::function<void(const LogRow&)>;
    using Filter = std::function<bool(const LogRow&)>;

    /// @param sink gets the rows, in the order of the log; a call at its end
    /// @param withRoutine whether it also gets every line that is routine or part of a call
    /// @param isWanted the rows for which it is false are neither shown nor counted
    LogModel(
        Sink sink, bool withRoutine, Filter isWanted = [](const LogRow&) { return true; });
    LogModel(const LogModel&) = delete;
    LogModel& operator=(const LogModel&) = delete;

    /// Takes the next line.
    /// @param line without its line feed
    void Take(std::string_view line);

    /// Takes a line before the part of interest, which is neither shown nor counted.
    void Learn(std::string_view line);

    /// To be called when no line has come for `time`: passes on all rows that are held back.
    void Idle(std::chrono::microseconds time);

    /// To be called after the last line: passes on all rows that are held back.
    void End();

    const LogSummary& Summary() const { return summary; }

    /// The names of the masters and grippers that are present now, as far as known.
    std::vector<std::string> PresentNames() const;

private:
    /// A row whose owner may become known by a later line of its thread.
    struct Held {
        LogRow row;
        std::chrono::microseconds time;
        bool isAwaiting;
    };

    void Advance(const LogEntry& entry);
    void TakeDaemonLine(const LogEntry& entry);
    void TakeOtherLine(const LogEntry& entry);
    void TakeTimeout(std::string_view rest);
    void SetOwner(std::uint64_t thread, const LogOwner& owner);
    void Add(LogRow row, bool isAwaiting = false);
    void Emit(std::size_t mostHeld);
    void Show(const Held& row);
    void AddEnded();
    void EmitAll();
    LogOwner OwnerOf(std::uint64_t thread, std::string_view message) const;

    Sink sink;
    bool withRoutine;
    Filter isWanted;
    bool isLearning = false;
    bool hasLearned = false;  // from the line before
    LogSummary summary;
    LoggedLinks links;
    LoggedCalls calls;
    LogRepeats repeats;
    LogRepeats absences;  // readings of what does not exist
    LogMoment now;
    std::deque<Held> held;
    std::vector<LogRow> ended;       // calls that the present line has ended
    std::optional<LogRow> timedOut;  // the first line of a text of two
    std::string timedOutRequest;
};

}  // namespace tavrik
