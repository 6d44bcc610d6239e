#pragma once

#include <cstddef>
#include <optional>

#include "doctor/Finding.h"
#include "doctor/Host.h"

namespace tavrik {

/// Whether there is a master, and a gripper is listed for each that the daemon has opened.
class MasterCheck {
public:
    /// @param listedCount how many grippers the daemon lists; nothing if it does not answer
    MasterCheck(const Host& machine, std::optional<std::size_t> listedCount)
        : host(machine), listed(listedCount) {}
    Findings Run() const;

    /// Whether masters are attached and the daemon has none of them open, so that all that it knows
    /// of its grippers is old. False if that cannot be seen.
    bool IsCutOff() const;

private:
    Finding Compare(std::size_t attached) const;
    std::size_t AttachedCount() const;

    /// How many masters the daemon has opened; nothing if that cannot be seen.
    std::optional<std::size_t> OpenedCount() const;

    const Host& host;
    std::optional<std::size_t> listed;
};

}  // namespace tavrik
