#include "doctor/log/LogStart.h"

#include <array>
#include <charconv>
#include <ctime>
#include <string_view>

#include "client/Failure.h"

namespace tavrik {

namespace {

using std::chrono::seconds;

constexpr seconds kDay = std::chrono::hours(24);

struct Unit {
    std::string_view name;
    seconds length;
};
constexpr std::array kUnits{Unit{"s", seconds(1)}, Unit{"min", std::chrono::minutes(1)},
                            Unit{"h", std::chrono::hours(1)}, Unit{"d", kDay}};

/// "90s", "10min", ...
std::optional<seconds> ReadAge(std::string_view text) {
    constexpr std::uint32_t kMost = 100000;
    std::uint32_t count = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), count);
    const std::string_view name = text.substr(static_cast<std::size_t>(end - text.data()));
    for (const Unit& unit : kUnits) {
        if (error == std::errc() && count <= kMost && name == unit.name) {
            return count * unit.length;
        }
    }
    return std::nullopt;
}

std::optional<std::tm> ReadTime(const std::string& text, const char* form, std::tm time) {
    const char* const end = strptime(text.c_str(), form, &time);
    return end != nullptr && *end == '\0' ? std::optional(time) : std::nullopt;
}

seconds ClockOf(const std::tm& time) {
    return std::chrono::hours(time.tm_hour) + std::chrono::minutes(time.tm_min) +
           seconds(time.tm_sec);
}

std::tm LocalTime(std::time_t time) {
    std::tm local{};
    localtime_r(&time, &local);
    return local;
}

}  // namespace

LogStart::LogStart(const std::string& text) : text(text) {
    const std::time_t now = std::time(nullptr);
    std::tm today = LocalTime(now);
    today.tm_sec = 0;
    today.tm_isdst = -1;
    std::tm midnight = today;
    midnight.tm_hour = midnight.tm_min = 0;
    if (const auto age = ReadAge(text)) {
        time = seconds(now) - *age;
        if (*age < kDay) {
            clock = ClockOf(LocalTime(time.count()));
        }
        return;
    }
    for (const char* const form : {"%H:%M", "%H:%M:%S"}) {
        if (auto read = ReadTime(text, form, today)) {
            clock = ClockOf(*read);
            time = seconds(std::mktime(&*read));
            time -= time > seconds(now) ? kDay : seconds(0);
            return;
        }
    }
    for (const char* const form : {"%Y-%m-%d", "%Y-%m-%d %H:%M", "%Y-%m-%d %H:%M:%S",
                                   "%Y-%m-%dT%H:%M", "%Y-%m-%dT%H:%M:%S"}) {
        if (auto read = ReadTime(text, form, midnight)) {
            time = seconds(std::mktime(&*read));
            return;
        }
    }
    throw Failure(ExitStatus::Usage,
                  "invalid time '" + text +
                      "': must be like 14:00, 14:00:30 or '2026-11-22 14:00', or a time ago like "
                      "90s, 10min, 2h or 3d");
}

bool LogStart::StartsAt(const LogEntry& entry) {
    if (!entry.date.empty()) {
        const bool isAt = !isFound && entry.SinceStart() >= time;
        isFound = isFound || isAt;
        return isAt;
    }
    const auto present = ReadClock(entry.clock);
    if (!present) {
        return false;
    }
    if (!clock) {
        throw Failure(ExitStatus::Usage,
                      "the log has no dates: name a time of day instead of '" + text + "'");
    }
    if (last && *present + kDay / 2 < *last) {
        isFound = false;  // another day
    }
    last = present;
    const bool isAt = !isFound && *present >= *clock;
    isFound = isFound || isAt;
    return isAt;
}

}  // namespace tavrik
