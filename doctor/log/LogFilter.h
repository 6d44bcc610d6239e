#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "doctor/log/LogRow.h"

namespace tavrik {

/// Selects the rows about one gripper.
class LogFilter {
public:
    /// @param wanted part of a device string, or a tty; empty for all grippers
    /// @param exact only the whole name matches
    explicit LogFilter(std::string wanted, bool exact = false)
        : wanted(std::move(wanted)), exact(exact) {}

    /// Rows of the daemon itself, and those that may be of the gripper, are wanted too.
    bool Wants(const LogRow& row);

    /// Whether a row of the gripper was seen, or the wanted name matches one of `names`, those of
    /// grippers and masters.
    bool IsFound(const std::vector<std::string>& names);

private:
    bool IsNamed(const std::string& name);
    bool Match(const std::string& name) const;

    std::string wanted;
    bool exact;
    std::map<std::string, bool> names;  // whether each is the gripper
    bool wasFound = false;
};

}  // namespace tavrik
