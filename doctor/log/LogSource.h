#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "doctor/ToolOutput.h"

namespace tavrik {

/// A log that is read line by line, with constant memory. Of a line of more than 64 KiB, the rest
/// is dropped.
class LogSource {
public:
    enum class Result {
        Line,
        Idle,  ///< nothing has come, or a signal
        End,
    };

    /// @param descriptor becomes the source's own
    /// @param followed path of a file that may grow, be replaced or truncated; otherwise empty
    /// @param writer the process that writes the input, which ends with the source; 0 if none
    explicit LogSource(int descriptor, std::string followed = "", pid_t writer = 0)
        : descriptor(descriptor), followed(std::move(followed)), writer(writer) {}
    ~LogSource();
    LogSource(const LogSource&) = delete;
    LogSource& operator=(const LogSource&) = delete;

    /// Waits up to `patience` for a line.
    /// @param line valid until the next call
    /// @throws Failure (Failed)
    Result Next(std::string_view& line, std::chrono::milliseconds patience);

private:
    bool TakeLine(std::string_view& line);
    ssize_t Read(std::chrono::milliseconds patience);
    bool IsContinued(std::chrono::milliseconds patience);
    void Restart(int newDescriptor);

    int descriptor;
    const std::string followed;
    const pid_t writer;
    std::string buffer;
    std::size_t position = 0;  // of the next line in `buffer`
    std::size_t searched = 0;  // `buffer` has no line feed between `position` and here
    bool isDropping = false;   // the rest of a line that was too long
    bool hasEnded = false;
};

/// @param path "-" for standard input
/// @param isFollowed whether to wait at the end for more, also if the file is replaced or truncated
/// @throws Failure (Failed)
std::unique_ptr<LogSource> OpenLogFile(const std::string& path, bool isFollowed);

/// The lines of the daemon's service in the journal, as journalctl prints them, with microseconds.
/// @param options for journalctl
/// @param errors where journalctl's standard error goes
/// @throws Failure (Failed)
std::unique_ptr<LogSource> OpenJournal(const std::vector<std::string>& options,
                                       ErrorOutput errors = ErrorOutput::Shown);

/// The same from `start` on, in seconds since 1970, and then each new line.
std::unique_ptr<LogSource> FollowJournal(std::chrono::seconds start,
                                         ErrorOutput errors = ErrorOutput::Shown);

/// The lines of the journal before `time`, since 1970, that tell masters and threads apart, oldest
/// first; the last ones, if there are many.
std::vector<std::string> ReadJournalBefore(std::chrono::seconds time);

}  // namespace tavrik
