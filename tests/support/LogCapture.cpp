#include "tests/support/LogCapture.h"

#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <iterator>
#include <optional>
#include <sstream>
#include <string_view>

namespace support {

namespace {

constexpr std::string_view kTimeShape = "00:00:00 ";

struct Entry {
    std::string thread;
    std::string message;
};

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

/// @return the entry that begins with `line`; nothing if `line` continues the previous message
std::optional<Entry> Begin(const std::string& line) {
    const auto has_shape = [](char shape, char c) {
        return shape == '0' ? IsDigit(c) : shape == c;
    };
    if (line.size() < kTimeShape.size() ||
        !std::equal(kTimeShape.begin(), kTimeShape.end(), line.begin(), has_shape)) {
        return std::nullopt;
    }
    const std::size_t blank = line.find(' ', kTimeShape.size());
    if (blank == std::string::npos) {
        return std::nullopt;
    }
    const std::string thread = line.substr(kTimeShape.size(), blank - kTimeShape.size());
    if (thread.empty() || !std::all_of(thread.begin(), thread.end(), IsDigit)) {
        return std::nullopt;
    }
    return Entry{thread, line.substr(blank + 1)};
}

std::vector<Entry> Split(const std::string& text) {
    std::vector<Entry> entries;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        if (auto entry = Begin(line)) {
            entries.push_back(*entry);
        } else if (!entries.empty()) {
            entries.back().message += '\n' + line;
        }
    }
    return entries;
}

}  // namespace

LogCapture::LogCapture() : output(STDOUT_FILENO) {}

Messages LogCapture::All() const {
    Messages messages;
    for (const Entry& entry : Split(Text())) {
        messages.push_back(entry.message);
    }
    return messages;
}

Messages LogCapture::OfThisThread() const {
    const std::string self = std::to_string(pthread_self());
    Messages messages;
    for (const Entry& entry : Split(Text())) {
        if (entry.thread == self) {
            messages.push_back(entry.message);
        }
    }
    return messages;
}

Messages LogCapture::BeginningWith(const std::string& start) const {
    const Messages all = All();
    Messages found;
    std::copy_if(all.begin(), all.end(), std::back_inserter(found),
                 [&start](const std::string& message) { return message.starts_with(start); });
    return found;
}

std::size_t LogCapture::Count(const std::string& message) const {
    const Messages all = All();
    return static_cast<std::size_t>(std::count(all.begin(), all.end(), message));
}

}  // namespace support
