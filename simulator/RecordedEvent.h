#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>

namespace simulator {

enum class RecordedKind {
    ToMaster,
    FromMaster,
    Plug,
    Unplug,  ///< the tty is gone, or has been since a hang-up, and udev reports it
    HangUp,  ///< the tty is gone, without a word of udev
};

/// One line of a recording: bytes that went to a master or came from it, or a change of its plug.
struct RecordedEvent {
    std::chrono::microseconds time{0};  ///< since the recording began
    unsigned master = 0;
    RecordedKind kind = RecordedKind::Plug;
    std::string bytes;     ///< of a transfer
    std::size_t line = 0;  ///< where it stands in its file; 0 for none
};

inline bool IsTransfer(const RecordedEvent& event) {
    return event.kind == RecordedKind::ToMaster || event.kind == RecordedKind::FromMaster;
}

/// The word for a kind: ">", "<", "plug", "unplug" or "hangup".
std::string_view RecordedWord(RecordedKind kind);

/// @return the line, without its line feed
std::string FormatRecordedEvent(const RecordedEvent& event);

/// @throws UsageError
RecordedEvent ParseRecordedEvent(std::string_view line);

}  // namespace simulator
