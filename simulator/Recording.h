#pragma once

#include <chrono>
#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace simulator {

enum class RecordedKind {
    ToMaster,
    FromMaster,
    Plug,
    Unplug,  ///< the tty is hung up, now or by an earlier HangUp, and udev reports the removal
    HangUp,  ///< the tty is hung up, and udev reports nothing
};

/// One line of a recording: bytes to or from a master, or a change of its plug.
struct RecordedEvent {
    std::chrono::microseconds time{0};  ///< since the start of the recording
    unsigned master = 0;
    RecordedKind kind = RecordedKind::Plug;
    std::string bytes;     ///< of a transfer
    std::size_t line = 0;  ///< number in its file; 0 for none
};

inline bool IsTransfer(const RecordedEvent& event) {
    return event.kind == RecordedKind::ToMaster || event.kind == RecordedKind::FromMaster;
}

/// @return ">", "<", "plug", "unplug" or "hangup"
std::string_view RecordedWord(RecordedKind kind);

/// @return the line without its line feed
std::string FormatRecordedEvent(const RecordedEvent& event);

/// @throws UsageError
RecordedEvent ParseRecordedEvent(std::string_view line);

/// The communication of a program with its masters, as read from a file.
struct Recording {
    /// The events of each master in order. Transfers occur only while it is plugged in.
    std::map<unsigned, std::vector<RecordedEvent>> masters;
};

/// The first line of every recording.
extern const std::string kRecordingHeader;

/// @throws std::runtime_error with file, line and reason
Recording ReadRecording(const std::string& path);

}  // namespace simulator
