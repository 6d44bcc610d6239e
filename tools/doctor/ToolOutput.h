#pragma once

#include <string>
#include <vector>

namespace tavrikctl {

struct ToolOutput {
    bool succeeded;
    std::string text;  ///< standard output and standard error
};

/// Runs a program of the system to its end, at most 10 s, without a shell.
ToolOutput RunTool(std::vector<std::string> command);

}  // namespace tavrikctl
