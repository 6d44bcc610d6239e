#pragma once

#include <string>

namespace support {

/// Captures what this process writes to a descriptor, from construction to destruction. If the test
/// has failed by then, writes it to the original target.
class OutputCapture {
public:
    /// @param descriptor STDOUT_FILENO or STDERR_FILENO
    explicit OutputCapture(int descriptor);
    OutputCapture(const OutputCapture&) = delete;
    OutputCapture& operator=(const OutputCapture&) = delete;
    ~OutputCapture();

    /// @return everything written since construction or the last Clear(). Any thread may call.
    std::string Text() const;

    void Clear() const;

private:
    const int target;
    const int original;  // duplicate of `target` before the redirection
    const int file;
};

}  // namespace support
