#pragma once

#include <atomic>
#include <chrono>
#include <deque>
#include <functional>
#include <string>
#include <vector>

#include "simulator/FileDescriptor.h"
#include "simulator/LineProtocol.h"

namespace simulator {

/// A source of command lines.
struct CommandSource {
    std::string text;     ///< the first lines, each with its line feed
    int descriptor = -1;  ///< of a stream with more lines, not owned; -1 for none
};

/// Reads command lines from several sources and executes them one by one. A pause in one source
/// does not delay the others. The end of a stream does not end Run().
class CommandReader {
public:
    /// Executes a line. @return the pause of its source after it.
    using Execute = std::function<std::chrono::milliseconds(const std::string& line)>;

    CommandReader(std::vector<CommandSource> commandSources, Execute execute);

    /// Executes the lines of every source up to its first pause.
    void Prepare();

    /// Executes lines until Stop() is called.
    void Run();

    /// Makes Run() return after the current line. Thread-safe.
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
    FileDescriptor stopDescriptor;  // readable once `stopping` is set
};

}  // namespace simulator
