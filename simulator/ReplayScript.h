#pragma once

#include <chrono>
#include <string>
#include <string_view>
#include <vector>

#include "simulator/Recording.h"

namespace simulator {

/// One write of a recorded master: an answer or a part of it.
struct RecordedAnswer {
    std::chrono::microseconds delay{0};  ///< since its request
    std::string text;
};

/// One step of a replay: a request, one line without its line feed; an unsolicited text from the
/// master; or a change of its plug.
struct ReplayStep : RecordedEvent {
    std::vector<RecordedAnswer> answers;  ///< to a request
};

/// Converts the events of one master to steps, with the answers of each request.
///
/// A line answers the oldest pending request with its key. A request ends with FIN, ERR, a data
/// line without ACK, or after 1 s, the daemon's timeout; later lines are unsolicited. Echoes are
/// dropped.
std::vector<ReplayStep> BuildReplayScript(const std::vector<RecordedEvent>& events);

/// True for an echo: a line that the master sent and a tty in line mode returned to it, even if it
/// is mixed with the start of a request.
bool IsEcho(std::string_view line);

/// True if `text` consists only of lines of process data.
bool IsProcessData(std::string_view text);

}  // namespace simulator
