#pragma once

#include <string>

namespace support {

/// Takes what is written to a descriptor of this process, from construction to destruction.
/// When the test has failed by then, all of it is passed on to where it would have gone.
class OutputCapture {
public:
    /// @param descriptor STDOUT_FILENO or STDERR_FILENO
    explicit OutputCapture(int descriptor);
    OutputCapture(const OutputCapture&) = delete;
    OutputCapture& operator=(const OutputCapture&) = delete;
    ~OutputCapture();

    /// All that was written since the construction or the last Clear(). Any thread.
    std::string Text() const;

    void Clear() const;

private:
    const int target;
    const int original;  // where `target` led before
    const int file;
};

}  // namespace support
