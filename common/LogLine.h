#pragma once

#include <pthread.h>

#include <array>
#include <charconv>
#include <concepts>
#include <string>
#include <string_view>

namespace TavrikDaemon {

/// Local wall-clock time of day as "hh:mm:ss". Any thread may call.
std::string timestamp();

/// `id` as unsigned decimal; 0 as "thread::id of a non-executing thread".
std::string threadIdText(pthread_t id);

}  // namespace TavrikDaemon

/// One log line: time, thread id and text. The destructor writes it to standard output in one call,
/// so that lines of different threads do not mix. Nothing is buffered beyond the object.
///
/// Any thread may log. Output errors are ignored. While standard output is a full pipe, the logging
/// thread blocks.
class LogLine {
public:
    LogLine();
    ~LogLine();
    LogLine(const LogLine&) = delete;
    LogLine& operator=(const LogLine&) = delete;

    LogLine& operator<<(std::string_view part);

    /// Appends `number` in decimal.
    LogLine& operator<<(std::integral auto number) {
        std::array<char, 24> digits;
        char* const end = std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr;
        return *this << std::string_view(digits.data(), end);
    }

private:
    std::string text;
};
