#include "simulator/Recording.h"

#include <algorithm>
#include <fstream>
#include <stdexcept>
#include <utility>

#include "simulator/UsageError.h"

namespace simulator {

const std::string kRecordingHeader = "pellix-recording 1";

namespace {

/// Takes no more than the header: what is no recording may have a line without end.
void ReadHeader(std::istream& file) {
    std::string header(kRecordingHeader.size(), '\0');
    file.read(header.data(), static_cast<std::streamsize>(header.size()));
    std::string rest = "missing";
    if (header == kRecordingHeader) {
        std::getline(file, rest);
    }
    if (!rest.empty() && rest != "\r") {
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

bool IsPlainText(const std::string& line) {
    return std::ranges::all_of(line, [](unsigned char byte) {
        return (byte >= ' ' && byte != 0x7f) || byte == '\t' || byte == '\r';
    });
}

RecordedEvent ReadEvent(const std::string& line, bool fileEnds) {
    if (fileEnds) {
        throw UsageError("the file ends without a line feed; it may have been cut off");
    }
    if (!IsPlainText(line)) {
        throw UsageError("a byte that is no plain text");
    }
    return ParseRecordedEvent(line);
}

bool IsSkipped(const std::string& line) {
    const auto first = line.find_first_not_of(" \t\r");
    return first == std::string::npos || line[first] == '#';
}

}  // namespace

Recording ReadRecording(const std::string& path) {
    std::ifstream file(path);
    Recording recording;
    std::size_t number = 1;
    try {
        ReadHeader(file);
        for (std::string line; ++number, std::getline(file, line);) {
            if (IsSkipped(line)) {
                continue;
            }
            RecordedEvent event = ReadEvent(line, file.eof());
            event.line = number;
            auto& events = recording.masters[event.master];
            CheckOrder(event, events.empty() ? nullptr : &events.back());
            events.push_back(std::move(event));
        }
        if (recording.masters.empty()) {
            throw UsageError("nothing is recorded");
        }
    } catch (const UsageError& error) {
        if (file.is_open() && !file.bad()) {
            throw std::runtime_error(path + ":" + std::to_string(number) + ": " + error.what());
        }
    }
    if (!file.eof()) {
        throw std::runtime_error("cannot read " + path);
    }
    return recording;
}

}  // namespace simulator
