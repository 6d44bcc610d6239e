#pragma once

#include <string>
#include <vector>

namespace tavrik {

enum class Mark {
    Ok,
    Wrong,
    Warning,  ///< does no harm yet, or need not
    Unknown,  ///< cannot be told from here, or may be right or wrong
};

/// One result of a check.
struct Finding {
    Mark mark;
    std::string subject;  ///< what was looked at
    std::string text;
    std::string remedy;  ///< what to do; empty if nothing is
};

using Findings = std::vector<Finding>;

/// "ok", "wrong", "warn" or "?".
inline const char* MarkText(Mark mark) {
    switch (mark) {
        case Mark::Ok:
            return "ok";
        case Mark::Wrong:
            return "wrong";
        case Mark::Warning:
            return "warn";
        case Mark::Unknown:
            break;
    }
    return "?";
}

}  // namespace tavrik
