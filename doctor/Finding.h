#pragma once

#include <string>
#include <vector>

namespace tavrik {

enum class Mark {
    Ok,
    Wrong,
    Warning,  ///< harmless so far
    Unknown,  ///< cannot be determined from here
};

/// One result of a check.
struct Finding {
    Mark mark;
    std::string subject;  ///< what was checked
    std::string text;
    std::string remedy = {};  ///< what to do; may be empty
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
