#pragma once

#include <chrono>
#include <string>

#include "doctor/log/LogRow.h"

namespace tavrik {

// The parts of a row as a person sees them; printable.

/// Whether a row tells of a problem.
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
