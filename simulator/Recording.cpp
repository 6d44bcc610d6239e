#include "simulator/Recording.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <fstream>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "simulator/TextTools.h"

namespace simulator {

const std::string kRecordingHeader = "pellix-recording 1";

namespace {

using std::chrono::microseconds;
using std::chrono::seconds;

constexpr std::string_view kLineBlanks = " \t\r";

/// In the order of RecordedKind.
constexpr std::array<std::string_view, 5> kWords{">", "<", "plug", "unplug", "hangup"};

std::string TakeField(CommandWords& words, const std::string& name) {
    const auto word = words.TakeIfAny();
    if (!word) {
        throw UsageError("missing " + name);
    }
    return *word;
}

microseconds ParseTime(const std::string& text) {
    constexpr seconds kLongestTime = std::chrono::hours(24 * 366);
    const std::chrono::duration<double> time(ParseDecimal(text));
    if (time < seconds::zero() || time > kLongestTime) {
        throw UsageError("invalid time '" + text + "': expected seconds, at most a year");
    }
    return std::chrono::round<microseconds>(time);
}

RecordedKind ParseKind(const std::string& word) {
    const auto* const place = std::ranges::find(kWords, word);
    if (place == kWords.end()) {
        throw UsageError("invalid event '" + word + "': expected >, <, plug, unplug or hangup");
    }
    return static_cast<RecordedKind>(place - kWords.begin());
}

/// Reads no more than the header: another file may have a line without end.
void ReadHeader(std::istream& file) {
    std::string header(kRecordingHeader.size(), '\0');
    file.read(header.data(), static_cast<std::streamsize>(header.size()));
    std::string rest = "missing";
    if (header == kRecordingHeader) {
        std::getline(file, rest);
    }
    if (!rest.empty() && rest != "\r") {
        throw UsageError("not a recording: the first line must be '" + kRecordingHeader + "'");
    }
}

/// @param last the event of the same master before `event`, or null
void CheckOrder(const RecordedEvent& event, const RecordedEvent* last) {
    const bool hungUp = last != nullptr && last->kind == RecordedKind::HangUp;
    const bool pluggedIn = last != nullptr && !hungUp && last->kind != RecordedKind::Unplug;
    if (last != nullptr && event.time < last->time) {
        throw UsageError("the time is before that of line " + std::to_string(last->line));
    }
    if (event.kind == RecordedKind::Plug && pluggedIn) {
        throw UsageError("the master is already plugged in");
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
        throw UsageError("missing line feed at the end; the file may be truncated");
    }
    if (!IsPlainText(line)) {
        throw UsageError("invalid character: write it as an escape");
    }
    return ParseRecordedEvent(line);
}

bool IsSkipped(const std::string& line) {
    const auto first = line.find_first_not_of(kLineBlanks);
    return first == std::string::npos || line[first] == '#';
}

}  // namespace

std::string_view RecordedWord(RecordedKind kind) {
    return kWords.at(static_cast<std::size_t>(kind));
}

std::string FormatRecordedEvent(const RecordedEvent& event) {
    const auto whole = std::chrono::floor<seconds>(event.time);
    std::array<char, 48> place{};
    const int length = std::snprintf(
        place.data(), place.size(), "%5lld.%06lld %u ", static_cast<long long>(whole.count()),
        static_cast<long long>((event.time - whole).count()), event.master);
    std::string line(place.data(), static_cast<std::size_t>(length));
    line += RecordedWord(event.kind);
    if (IsTransfer(event)) {
        line += ' ';
        line += Escape(event.bytes);
    }
    return line;
}

RecordedEvent ParseRecordedEvent(std::string_view line) {
    constexpr unsigned kLargestMaster = 999;
    // Recorded blanks are escaped at the end: these come from an editor.
    line = line.substr(0, line.find_last_not_of(kLineBlanks) + 1);
    CommandWords words(line);
    RecordedEvent event;
    event.time = ParseTime(TakeField(words, "time"));
    event.master = ParseUnsigned(TakeField(words, "master"), kLargestMaster);
    event.kind = ParseKind(TakeField(words, "event"));
    if (!IsTransfer(event)) {
        words.End();
        return event;
    }
    event.bytes = Unescape(words.TakeRest());
    if (event.bytes.empty()) {
        throw UsageError("missing bytes after " + std::string(RecordedWord(event.kind)));
    }
    return event;
}

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
            throw UsageError("the recording has no events");
        }
    } catch (const UsageError& error) {
        if (file.is_open() && !file.bad()) {
            throw std::runtime_error(path + ":" + std::to_string(number) + ": " + error.what());
        }
    }
    if (!file.eof()) {
        throw std::system_error(errno, std::generic_category(), "cannot read " + path);
    }
    return recording;
}

}  // namespace simulator
