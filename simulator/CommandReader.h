#pragma once

#include <atomic>
#include <chrono>
#include <deque>
#include <functional>
#include <string>
#include <vector>

#include "simulator/AnswerQueue.h"
#include "simulator/FileDescriptor.h"

namespace simulator {

/// Where command lines come from.
struct CommandSource {
    std::string text;     ///< the first lines, each with its end
    int descriptor = -1;  ///< of a stream with more of them, not owned; -1 for none
};

/// Reads command lines from several sources and has them executed one by one. A pause in one of the
/// sources does not hold up the others, and the end of a stream ends nothing.
class CommandReader {
public:
    /// Executes a line. @return how long its source pauses after it.
    using Execute = std::function<std::chrono::milliseconds(const std::string& line)>;

    CommandReader(std::vector<CommandSource> initialSources, Execute executeLine);

    /// Executes the first lines of every source, up to its first pause.
    void Prepare();

    /// Executes what comes until Stop(); blocks till then.
    void Run();

    /// Makes Run() return after the line that it executes. Any thread.
    void Stop();

private:
    struct Source : CommandSource {
        TimePoint resumeAt;
    };

    void ExecuteDueLines(Source& source);
    int MillisecondsToNextLine() const;
    static void ReadStream(Source& source);

    std::vector<Source> sources;
    Execute execute;
    std::atomic<bool> stopping = false;
    FileDescriptor stopDescriptor;  // readable when `stopping` was set
};

}  // namespace simulator
