#include "common/LogLine.h"

#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <ctime>

namespace TavrikDaemon {

namespace {

std::time_t CurrentSecond() {
    return std::chrono::system_clock::to_time_t(
        std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now()));
}

std::string TimeOfDay(std::time_t time) {
    std::tm local{};
    tzset();  // localtime_r() alone keeps the time zone of the first line
    localtime_r(&time, &local);
    std::array<char, 80> buffer;
    const std::size_t length = std::strftime(buffer.data(), buffer.size(), "%T", &local);
    return {buffer.data(), length};
}

/// The beginning of a thread's lines, valid for one second. Trivially destructible, so that a
/// thread may log until it ends.
struct Prefix {
    std::time_t second = 0;
    std::size_t length = 0;  // 0 before the first line
    std::array<char, 64> text{};
};

/// Formats the prefix once per second and thread: formatting it for each line would cost more than
/// everything else except the write.
std::string_view CurrentPrefix() {
    constinit thread_local Prefix prefix;
    const std::time_t now = CurrentSecond();
    if (prefix.second != now || prefix.length == 0) {
        const std::string text = TimeOfDay(now) + " " + threadIdText(pthread_self()) + " ";
        prefix.length = text.copy(prefix.text.data(), prefix.text.size());
        prefix.second = now;
    }
    return {prefix.text.data(), prefix.length};
}

}  // namespace

std::string timestamp() {
    return TimeOfDay(CurrentSecond());
}

std::string threadIdText(pthread_t id) {
    return id == 0 ? "thread::id of a non-executing thread" : std::to_string(id);
}

}  // namespace TavrikDaemon

namespace {

constexpr std::size_t kUsualLength = 120;  // characters; nearly every line is shorter

/// A pipe may accept only part of a long line; the rest is then written at once.
void WriteAll(int fd, std::string_view text) {
    while (!text.empty()) {
        const ssize_t count = ::write(fd, text.data(), text.size());
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0) {
            return;
        }
        text.remove_prefix(static_cast<std::size_t>(count));
    }
}

}  // namespace

LogLine::LogLine() {
    text.reserve(kUsualLength);
    text = TavrikDaemon::CurrentPrefix();
}

LogLine& LogLine::operator<<(std::string_view part) {
    text += part;
    return *this;
}

LogLine::~LogLine() {
    text += '\n';
    WriteAll(STDOUT_FILENO, text);
}
