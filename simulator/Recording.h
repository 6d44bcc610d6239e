#pragma once

#include <map>
#include <string>
#include <vector>

#include "simulator/RecordedEvent.h"

namespace simulator {

/// The dialogue between a program and its masters, as a file holds it.
struct Recording {
    /// The events of each master in their order. Bytes go only between a plug and what ends it.
    std::map<unsigned, std::vector<RecordedEvent>> masters;
};

/// The first line of every recording.
extern const std::string kRecordingHeader;

/// @throws std::runtime_error with file, line and reason
Recording ReadRecording(const std::string& path);

}  // namespace simulator
