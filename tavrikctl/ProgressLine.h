#pragma once

#include <string>

namespace tavrik {

/// Shows progress in a line that disappears at the end. Written to standard error, and only if that
/// is a terminal.
class ProgressLine {
public:
    /// @param text the activity in one word, such as "Reading"
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
