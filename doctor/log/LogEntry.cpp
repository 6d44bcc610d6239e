#include "doctor/log/LogEntry.h"

#include <algorithm>
#include <charconv>

namespace tavrik {

namespace {

bool IsDigit(char letter) {
    return letter >= '0' && letter <= '9';
}

/// Whether `text` begins with the digits of `form`, which has a 0 for each, and its other letters.
bool BeginsLike(std::string_view text, std::string_view form) {
    return text.size() >= form.size() &&
           std::ranges::equal(text.substr(0, form.size()), form, [](char letter, char model) {
               return model == '0' ? IsDigit(letter) : letter == model;
           });
}

int Number(std::string_view text, std::size_t begin, std::size_t size) {
    int number = 0;
    std::from_chars(text.data() + begin, text.data() + begin + size, number);
    return number;
}

std::string_view TakeWhile(std::string_view& text, bool (*belongs)(char)) {
    const auto* const end = std::ranges::find_if_not(text, belongs);
    const auto size = static_cast<std::size_t>(end - text.begin());
    const std::string_view taken = text.substr(0, size);
    text.remove_prefix(size);
    return taken;
}

/// Takes "12:00:01" or "12:00:01.120456" from the beginning of `text`.
std::string_view TakeClock(std::string_view& text) {
    constexpr std::string_view kForm = "00:00:00";
    if (!BeginsLike(text, kForm)) {
        return {};
    }
    std::string_view rest = text.substr(kForm.size());
    if (rest.size() > 1 && rest.front() == '.' && IsDigit(rest[1])) {
        rest.remove_prefix(1);
        TakeWhile(rest, IsDigit);
    }
    const std::string_view clock = text.substr(0, text.size() - rest.size());
    text = rest;
    return clock;
}

/// Takes "12:00:01 140384997449536 " from the beginning of `text`: the prefix of the daemon.
bool TakeThread(std::string_view& text, LogEntry& entry) {
    std::string_view rest = text;
    const std::string_view clock = TakeClock(rest);
    if (clock.size() != LogEntry::kClockSize || !rest.starts_with(' ')) {
        return false;
    }
    rest.remove_prefix(1);
    std::uint64_t thread = 0;
    const auto [end, error] = std::from_chars(rest.data(), rest.data() + rest.size(), thread);
    if (error != std::errc() || end == rest.data() + rest.size() || *end != ' ') {
        return false;
    }
    rest.remove_prefix(static_cast<std::size_t>(end - rest.data()) + 1);
    entry.clock = entry.clock.empty() ? clock : entry.clock;
    entry.thread = thread;
    text = rest;
    return true;
}

/// Takes the date and time of the journal: "2026-11-22T12:00:01.120456+0100 " or
/// "Nov 22 12:00:01 ".
bool TakeStamp(std::string_view& text, LogEntry& entry) {
    constexpr std::string_view kIsoDate = "0000-00-00";
    constexpr std::size_t kShortDate = 7;  // "Nov 22 "
    std::string_view rest = text;
    const bool isIso = BeginsLike(text, kIsoDate);
    rest.remove_prefix(std::min(rest.size(), isIso ? kIsoDate.size() + 1 : kShortDate));
    const std::string_view clock = TakeClock(rest);
    const std::string_view zone =
        TakeWhile(rest, [](char letter) { return letter != ' ' && letter != '\t'; });
    if (clock.empty() || rest.empty() || (!isIso && !zone.empty())) {
        return false;
    }
    rest.remove_prefix(1);
    entry.clock = clock;
    entry.zone = zone;
    entry.date = isIso ? text.substr(0, kIsoDate.size()) : std::string_view();
    text = rest;
    return true;
}

/// Takes "host TavrikDaemon[123]: " or "TavrikDaemon[123]: " from the beginning of `text`.
void TakeProcess(std::string_view& text, LogEntry& entry) {
    const std::size_t colon = text.find(": ");
    const std::string_view names = text.substr(0, colon);
    if (colon != std::string_view::npos && names.ends_with(']')) {
        entry.process = names.substr(names.rfind(' ') + 1);  // all of it without a blank
        text.remove_prefix(colon + 2);
    }
}

}  // namespace

LogEntry::Time LogEntry::SinceStart() const {
    using std::chrono::hours;
    using std::chrono::minutes;
    Time time = ReadClock(clock).value_or(std::chrono::seconds(0));
    Time unit = std::chrono::seconds(1);
    for (const char digit : clock.substr(std::min(clock.size(), kClockSize + 1))) {
        unit /= 10;
        time += (digit - '0') * unit;
    }
    if (date.empty()) {
        return time;
    }
    const std::chrono::year_month_day day{
        std::chrono::year(Number(date, 0, 4)),
        std::chrono::month(static_cast<unsigned>(Number(date, 5, 2))),
        std::chrono::day(static_cast<unsigned>(Number(date, 8, 2)))};
    time += std::chrono::sys_days(day).time_since_epoch();
    if (BeginsLike(zone, "+00") || BeginsLike(zone, "-00")) {
        const std::size_t colon = zone.substr(3).starts_with(':') ? 1 : 0;
        const std::string_view minute = zone.substr(3 + colon);
        const Time offset = hours(Number(zone, 1, 2)) + minutes(Number(minute, 0, minute.size()));
        time -= zone.front() == '+' ? offset : -offset;
    }
    return time;
}

LogEntry ParseLogEntry(std::string_view line) {
    LogEntry entry;
    if (!TakeThread(line, entry) && TakeStamp(line, entry)) {
        TakeProcess(line, entry);
        TakeThread(line, entry);
    }
    entry.message = line;
    return entry;
}

std::optional<std::chrono::seconds> ReadClock(std::string_view text) {
    if (!BeginsLike(text, "00:00:00")) {
        return std::nullopt;
    }
    return std::chrono::hours(Number(text, 0, 2)) + std::chrono::minutes(Number(text, 3, 2)) +
           std::chrono::seconds(Number(text, 6, 2));
}

}  // namespace tavrik
