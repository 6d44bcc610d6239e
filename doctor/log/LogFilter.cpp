#include "doctor/log/LogFilter.h"

#include <algorithm>

#include "client/Failure.h"
#include "client/GripperName.h"

namespace tavrik {

bool LogFilter::Wants(const LogRow& row) {
    if (wanted.empty() || row.isOfDaemon) {
        return true;
    }
    if (!row.owner.IsKnown()) {
        return row.kind != LogKind::Routine &&
               (row.owner.candidates.empty() ||
                std::ranges::any_of(row.owner.candidates,
                                    [this](const auto& name) { return IsNamed(name); }));
    }
    const bool isWanted = IsNamed(row.owner.gripper) || IsNamed(row.owner.node);
    wasFound = wasFound || isWanted;
    return isWanted;
}

bool LogFilter::IsFound(const std::vector<std::string>& names) {
    return wanted.empty() || wasFound ||
           std::ranges::any_of(names, [this](const auto& name) { return IsNamed(name); });
}

bool LogFilter::IsNamed(const std::string& name) {
    if (name.empty()) {
        return false;
    }
    constexpr std::size_t kMostNames = 1000;
    if (names.size() >= kMostNames) {
        names.clear();
    }
    const auto [found, isNew] = names.try_emplace(name, false);
    if (isNew) {
        found->second = Match(name);
    }
    return found->second;
}

bool LogFilter::Match(const std::string& name) const {
    constexpr std::string_view kFolder = "/dev/";
    if (name.starts_with(kFolder)) {
        return name == wanted || name.substr(kFolder.size()) == wanted;
    }
    try {
        return MatchGripper({name}, wanted, exact) == name;
    } catch (const Failure&) {
        return false;
    }
}

}  // namespace tavrik
