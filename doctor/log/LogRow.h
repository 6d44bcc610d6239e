#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "doctor/log/LogMessage.h"

namespace tavrik {

/// When a line was logged, as the log has it.
struct LogStamp {
    std::string date;   ///< "2026-11-22"; empty if the log has none
    std::string clock;  ///< "12:00:01", or with a fraction; empty if the line has none
    std::string zone;   ///< "+0100"; empty if the log has none
};

/// The master and gripper that a line is about.
struct LogOwner {
    std::string node;                          ///< "/dev/ttyACM0"; empty if unknown
    std::string gripper;                       ///< its device string; empty if unknown
    std::vector<std::string> candidates = {};  ///< if unknown: names of the possible ones
    std::string likely = {};  ///< the candidate that all other calls of the thread were for

    /// Gripper or else node; empty if unknown.
    const std::string& Name() const { return gripper.empty() ? node : gripper; }
    bool IsKnown() const { return !Name().empty(); }
};

/// A call of a client, as far as the log has its requests to the master.
struct LoggedCall {
    enum class Outcome { Done, Refused, TimedOut };

    std::string method = {};   ///< "Grip", or several that are possible; may be empty
    std::string request = {};  ///< "PDOUT=[3,1]"
    Outcome outcome = Outcome::Done;
    std::optional<std::uint32_t> status = {};  ///< nothing if the log leaves it open
    std::optional<std::chrono::microseconds> duration = {};
    bool isExact = false;   ///< whether `duration` is; otherwise it has whole seconds
    std::string note = {};  ///< why it failed; may be empty
    bool isAbsent = false;  ///< a refused reading of what the master has never sent before
};

/// One line for a person. Its texts are the log's and may contain anything.
struct LogRow {
    LogStamp stamp = {};
    LogKind kind = LogKind::Other;
    LogOwner owner = {};
    std::optional<std::uint64_t> thread = {};  ///< nothing if the line has none
    bool isOfDaemon = false;  ///< about the daemon or its host, and no master in particular
    std::string text = {};    ///< empty for a call
    std::optional<LoggedCall> call = {};
};

// The parts of a row as a person sees them, printable:

/// Whether a row reports a problem.
bool IsAlarming(const LogRow& row);

/// "!" for a problem, "*" for an event, otherwise a blank.
std::string LogMark(const LogRow& row);

/// The time to the millisecond, as far as the log has it.
std::string LogClock(const LogRow& row);

/// The tty of the master; may be empty.
std::string LogMaster(const LogRow& row);

/// What is known of the gripper: a thread's lines without a known master keep its number.
std::string LogGripper(const LogRow& row);

/// A call in one line, or the text of the row.
std::string LogText(const LogRow& row);

/// @param isExact otherwise it has whole seconds
std::string LogDuration(std::chrono::microseconds duration, bool isExact);

}  // namespace tavrik
