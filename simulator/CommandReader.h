#pragma once

#include <atomic>
#include <chrono>
#include <deque>
#include <functional>
#include <string>

#include "simulator/AnswerQueue.h"
#include "simulator/FileDescriptor.h"

namespace simulator {

/// Reads command lines from a script and from an input stream, and has them executed one by one.
/// A pause in one of the two does not hold up the other.
class CommandReader {
public:
    /// Executes a line. @return how long its source pauses after it.
    using Execute = std::function<std::chrono::milliseconds(const std::string& line)>;

    /// @param scriptText all the lines of the script
    /// @param openInput descriptor of the input stream, not owned; its end ends nothing
    CommandReader(const std::string& scriptText, int openInput, Execute executeLine);

    /// Executes the script up to its first pause.
    void Prepare();

    /// Executes what comes until Stop(); blocks till then.
    void Run();

    /// Makes Run() return after the line that it executes. Any thread.
    void Stop();

private:
    struct Source {
        std::string text;
        TimePoint resumeAt;
    };

    void ExecuteDueLines(Source& source);
    int MillisecondsToNextLine() const;
    void ReadInput();

    Execute execute;
    int inputDescriptor;  // -1 after its end
    std::atomic<bool> stopping = false;
    FileDescriptor stopDescriptor;  // readable when `stopping` was set
    Source script;
    Source input;
};

}  // namespace simulator
