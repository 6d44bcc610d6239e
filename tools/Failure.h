#pragma once

#include <stdexcept>
#include <string>

#include "tools/ExitStatus.h"

namespace tavrikctl {

/// Ends the program: the text, one line, goes to standard error.
class Failure : public std::runtime_error {
public:
    Failure(ExitStatus status, const std::string& text)
        : std::runtime_error(text), exitStatus(status) {}
    ExitStatus Status() const { return exitStatus; }

private:
    ExitStatus exitStatus;
};

}  // namespace tavrikctl
