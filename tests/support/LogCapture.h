#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "tests/support/OutputCapture.h"

namespace support {

using Messages = std::vector<std::string>;

/// Takes the log lines of this process for its scope and gives their messages, oldest first,
/// without time and thread id. Any thread may ask.
class LogCapture {
public:
    LogCapture();

    /// The messages of all threads. A message that spans several lines is one, without its last
    /// line feed.
    Messages All() const;

    /// Those of the calling thread.
    Messages OfThisThread() const;

    /// Those that begin with `start`.
    Messages BeginningWith(const std::string& start) const;

    /// How often `message` was logged.
    std::size_t Count(const std::string& message) const;

    bool Contains(const std::string& message) const { return Count(message) > 0; }

    /// The lines as they were written.
    std::string Text() const { return output.Text(); }

    void Clear() const { output.Clear(); }

private:
    OutputCapture output;
};

}  // namespace support
