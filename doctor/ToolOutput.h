#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>
#include <vector>

namespace tavrik {

struct ToolOutput {
    bool succeeded;
    std::string text;  ///< standard output and standard error
};

struct StartedTool {
    pid_t process;
    int output;  ///< descriptor of its standard output, to be closed by the caller
};

/// Starts a program of the system, without a shell; its standard input is empty.
/// @param withErrors whether its standard error goes to `output`, too
/// @throws Failure (Failed)
StartedTool StartTool(std::vector<std::string> command, bool withErrors);

/// Runs a program of the system to its end, without a shell; what takes longer than `limit` is
/// ended.
ToolOutput RunTool(std::vector<std::string> command,
                   std::chrono::seconds limit = std::chrono::seconds(10));

}  // namespace tavrik
