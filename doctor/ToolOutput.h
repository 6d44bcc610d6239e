#pragma once

#include <chrono>
#include <string>
#include <vector>

namespace tavrik {

struct ToolOutput {
    bool succeeded;
    std::string text;  ///< standard output and standard error
};

/// Runs a program of the system to its end, without a shell; what takes longer than `limit` is
/// ended.
ToolOutput RunTool(std::vector<std::string> command,
                   std::chrono::seconds limit = std::chrono::seconds(10));

}  // namespace tavrik
