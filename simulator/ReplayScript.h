#pragma once

#include <chrono>
#include <string>
#include <string_view>
#include <vector>

#include "simulator/RecordedEvent.h"

namespace simulator {

/// An answer of a recorded master, or a part of one, as one write carries it.
struct RecordedAnswer {
    std::chrono::microseconds delay{0};  ///< since its request
    std::string text;
};

/// What a recorded master waits for or does next: a request, of which `bytes` are one line without
/// its end; something that it says of its own accord; or a change of its plug.
struct ReplayStep : RecordedEvent {
    std::vector<RecordedAnswer> answers;  ///< to a request
};

/// Puts the events of one master in order: requests, each with its answers, and what the master
/// said of its own accord.
///
/// A line answers the oldest request with its key that is under way. A request is over with FIN,
/// ERR, a data line without ACK, or after 1 s, when the daemon has given it up; what comes then
/// counts as said of the master's own accord. Echoes are left out.
std::vector<ReplayStep> BuildReplayScript(const std::vector<RecordedEvent>& events);

/// Whether a line to a master is the echo of one of its own, whole or with the beginning of a
/// request behind it, as a tty in line mode returns it.
bool IsEcho(std::string_view line);

/// Whether `text` is lines of process data and nothing else.
bool IsProcessData(std::string_view text);

}  // namespace simulator
