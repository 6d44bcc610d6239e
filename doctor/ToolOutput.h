#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>
#include <vector>

namespace tavrik {

/// Where a tool's standard error goes.
enum class ErrorOutput {
    Shown,   ///< to the standard error of this program
    Merged,  ///< to the tool's standard output
    Dropped,
};

struct ToolOutput {
    bool succeeded;
    std::string text;  ///< standard output, and standard error if merged

    std::vector<std::string> LinesInReverse() const;
};

struct StartedTool {
    pid_t process;
    int output;  ///< descriptor of its standard output, to be closed by the caller
};

/// Starts a program of the system, without a shell; its standard input is empty.
/// @throws Failure (Failed)
StartedTool StartTool(std::vector<std::string> command, ErrorOutput errors);

/// Runs a program of the system without a shell, and ends it after `limit`.
/// @return not succeeded if it is missing, fails or was ended
ToolOutput RunTool(std::vector<std::string> command,
                   std::chrono::seconds limit = std::chrono::seconds(10),
                   ErrorOutput errors = ErrorOutput::Merged);

}  // namespace tavrik
