#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "tests/support/OutputCapture.h"

namespace support {

using Messages = std::vector<std::string>;

/// Captures the log lines of this process during its lifetime. Returns their messages without time
/// and thread id, oldest first. Any thread may call.
class LogCapture {
public:
    LogCapture();

    /// @return messages of all threads. A message of several lines is one element, without its last
    ///         line feed.
    Messages All() const;

    /// @return messages of the calling thread
    Messages OfThisThread() const;

    /// @return messages that begin with `start`
    Messages BeginningWith(const std::string& start) const;

    /// @return how often `message` was logged
    std::size_t Count(const std::string& message) const;

    bool Contains(const std::string& message) const { return Count(message) > 0; }

    /// @return the lines as written
    std::string Text() const { return output.Text(); }

    void Clear() const { output.Clear(); }

private:
    OutputCapture output;
};

}  // namespace support
