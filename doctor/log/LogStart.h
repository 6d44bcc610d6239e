#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "doctor/log/LogEntry.h"

namespace tavrik {

/// The time from which a user wants to see a log.
class LogStart {
public:
    /// @param text "14:00", "14:00:30", "2026-11-22", "2026-11-22 14:00", or how long ago: "90s",
    /// "10min", "2h", "3d"
    /// @throws Failure (Usage)
    explicit LogStart(const std::string& text);

    /// Since 1970.
    std::chrono::seconds Time() const { return time; }

    /// Takes the next line of a log.
    /// @return whether the part begins here; in a log without dates once a day
    /// @throws Failure (Usage) if the log has no dates, but they are needed
    bool StartsAt(const LogEntry& entry);

private:
    std::string text;
    std::chrono::seconds time{};
    std::optional<std::chrono::seconds> clock;  // since midnight; nothing if that is not enough
    std::optional<std::chrono::seconds> last;   // of the line before
    bool isFound = false;                       // on this day
};

}  // namespace tavrik
