#include "daemon/LogLine.h"

#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <ctime>

namespace TavrikDaemon {

std::string timestamp() {
    const std::time_t now = std::chrono::system_clock::to_time_t(
        std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now()));
    std::tm local{};
    localtime_r(&now, &local);
    std::array<char, 80> buffer;
    const std::size_t length = std::strftime(buffer.data(), buffer.size(), "%T", &local);
    return {buffer.data(), length};
}

std::string threadIdText(pthread_t id) {
    return id == 0 ? "thread::id of a non-executing thread" : std::to_string(id);
}

}  // namespace TavrikDaemon

namespace {

/// A pipe may take a long line in pieces; the rest follows at once.
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

LogLine::LogLine() : text(TavrikDaemon::timestamp()) {
    text += ' ';
    text += TavrikDaemon::threadIdText(pthread_self());
    text += ' ';
}

LogLine::~LogLine() {
    text += '\n';
    WriteAll(STDOUT_FILENO, text);
}
