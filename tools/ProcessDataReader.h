#pragma once

#include <chrono>

#include "tools/Gripper.h"
#include "tools/ProcessData.h"

namespace tavrikctl {

/// Reads a gripper's process data again and again without flooding the daemon's log: while there
/// are none, GetPDINExcerpt logs a line each time, so it is called once a second then.
class ProcessDataReader {
public:
    /// @param gripper must outlive the reader
    explicit ProcessDataReader(const Gripper& gripper) : source(gripper) {}

    /// What the master sent last. While that is all zero, a change of the flags alone is seen up
    /// to a second late.
    /// @throws Failure (NoGripper), as Gripper::ReadProcessData()
    ProcessData Read();

private:
    bool StillZero() const;

    const Gripper& source;
    ProcessData last{0};
    std::chrono::steady_clock::time_point lastExcerpt{};
};

}  // namespace tavrikctl
