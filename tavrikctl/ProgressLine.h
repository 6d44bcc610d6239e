#pragma once

#include <string>

namespace tavrik {

/// Shows on a terminal how much is done, in a line that disappears at the end. It is written to
/// standard error, and only if that is a terminal.
class ProgressLine {
public:
    /// @param text what is done, in a word
    explicit ProgressLine(std::string text);
    ~ProgressLine();
    ProgressLine(const ProgressLine&) = delete;
    ProgressLine& operator=(const ProgressLine&) = delete;

    /// @param part that is done, 0 to 1
    void operator()(double part);

private:
    const std::string text;
    std::string shown;
};

}  // namespace tavrik
