#include "simulator/RecordedEvent.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "simulator/CommandWords.h"
#include "simulator/TextTools.h"
#include "simulator/UsageError.h"

namespace simulator {

namespace {

using std::chrono::microseconds;
using std::chrono::seconds;

constexpr seconds kLongestTime = std::chrono::hours(24 * 366);
constexpr unsigned kLargestMaster = 999;

/// In the order of the kinds.
constexpr std::array<std::string_view, 5> kWords{">", "<", "plug", "unplug", "hangup"};

std::string TakeField(CommandWords& words, const std::string& name) {
    const auto word = words.TakeIfAny();
    if (!word) {
        throw UsageError("the " + name + " is missing");
    }
    return *word;
}

microseconds ParseTime(const std::string& text) {
    const std::chrono::duration<double> time(ParseDecimal(text));
    if (time < seconds::zero() || time > kLongestTime) {
        throw UsageError("no time within a year: '" + text + "'");
    }
    return std::chrono::round<microseconds>(time);
}

RecordedKind ParseKind(const std::string& word) {
    const auto* const place = std::ranges::find(kWords, word);
    if (place == kWords.end()) {
        throw UsageError("none of > < plug unplug hangup: '" + word + "'");
    }
    return static_cast<RecordedKind>(place - kWords.begin());
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
    // Blanks at an end of the bytes are escaped: what is there comes from an editor.
    line = line.substr(0, line.find_last_not_of(" \t\r") + 1);
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
        throw UsageError("there are no bytes behind " + std::string(RecordedWord(event.kind)));
    }
    return event;
}

}  // namespace simulator
