#include "simulator/Recording.h"

#include <fstream>
#include <stdexcept>
#include <utility>

#include "simulator/UsageError.h"

namespace simulator {

const std::string kRecordingHeader = "pellix-recording 1";

namespace {

void CheckHeader(std::string header) {
    if (header.ends_with('\r')) {
        header.pop_back();
    }
    if (header != kRecordingHeader) {
        throw UsageError("a recording of this version begins with '" + kRecordingHeader + "'");
    }
}

/// Whether `event` can come after `last`, which is null for the first one of a master.
void CheckOrder(const RecordedEvent& event, const RecordedEvent* last) {
    const bool hungUp = last != nullptr && last->kind == RecordedKind::HangUp;
    const bool pluggedIn = last != nullptr && !hungUp && last->kind != RecordedKind::Unplug;
    if (last != nullptr && event.time < last->time) {
        throw UsageError("the time goes back behind that of line " + std::to_string(last->line));
    }
    if (event.kind == RecordedKind::Plug && pluggedIn) {
        throw UsageError("the master is plugged in already");
    }
    if (event.kind != RecordedKind::Plug && !pluggedIn &&
        !(event.kind == RecordedKind::Unplug && hungUp)) {
        throw UsageError("the master is not plugged in");
    }
}

bool IsSkipped(const std::string& line) {
    const auto first = line.find_first_not_of(" \t\r");
    return first == std::string::npos || line[first] == '#';
}

}  // namespace

Recording ReadRecording(const std::string& path) {
    std::ifstream file(path);
    Recording recording;
    std::size_t number = 0;
    try {
        for (std::string line; ++number, std::getline(file, line);) {
            if (number == 1) {
                CheckHeader(line);
                continue;
            }
            if (IsSkipped(line)) {
                continue;
            }
            RecordedEvent event = ParseRecordedEvent(line);
            event.line = number;
            auto& events = recording.masters[event.master];
            CheckOrder(event, events.empty() ? nullptr : &events.back());
            events.push_back(std::move(event));
        }
        if (!file.eof()) {
            throw std::runtime_error("cannot read " + path);
        }
        if (recording.masters.empty()) {
            throw UsageError("nothing is recorded");
        }
    } catch (const UsageError& error) {
        throw std::runtime_error(path + ":" + std::to_string(number) + ": " + error.what());
    }
    return recording;
}

}  // namespace simulator
