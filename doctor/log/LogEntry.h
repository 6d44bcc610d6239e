#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string_view>

namespace tavrik {

/// One line of a log, taken apart. It points into the line.
struct LogEntry {
    using Time = std::chrono::microseconds;

    std::string_view date;     ///< "2026-11-22"; empty if the line has none
    std::string_view clock;    ///< "12:00:01", in the journal "12:00:01.120456"; may be empty
    std::string_view zone;     ///< "+0100"; empty if the line has none
    std::string_view process;  ///< "TavrikDaemon[123]", of the journal; may be empty
    std::optional<std::uint64_t> thread;  ///< nothing if the line is not one of the daemon's log
    std::string_view message;

    /// Whether the line has date and fraction of its second, as the journal prints them.
    bool IsPrecise() const { return !date.empty() && clock.size() > kClockSize; }

    /// Since 1970, if the line has a date and a zone, otherwise since midnight.
    Time SinceStart() const;

    static constexpr std::size_t kClockSize = 8;  // "12:00:01"
};

/// @param line without its line feed: of the daemon's standard output, or of `journalctl` with an
/// output format that begins with a date ("short", "short-iso", "short-precise", ...)
LogEntry ParseLogEntry(std::string_view line);

/// "12:00:01" as seconds since midnight; nothing if `text` does not begin with a time of day.
std::optional<std::chrono::seconds> ReadClock(std::string_view text);

}  // namespace tavrik
