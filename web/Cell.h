#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <vector>

#include "client/ProcessData.h"

namespace tavrik {

/// One gripper as it was last read.
struct CellGripper {
    using TimePoint = std::chrono::steady_clock::time_point;

    std::string device;                    ///< its device string
    std::size_t copies = 1;                ///< grippers with this name; calls reach only the first
    std::optional<ProcessData> data = {};  ///< nothing until it was read
    TimePoint readAt = {};                 ///< when `data` was read
    /// Since when `data` is old because the master does not answer.
    std::optional<TimePoint> silentSince = {};
    std::uint64_t motions = 0;  ///< observed so far
    bool isMoving = false;      ///< since the reading before

    /// Whether the daemon lists it.
    bool IsListed() const { return copies > 0; }

    /// How old `data` is.
    std::chrono::steady_clock::duration Age(TimePoint now) const {
        return now - silentSince.value_or(readAt);
    }

    /// Takes what was read at `time`.
    void Update(const ProcessData& read, TimePoint time);
};

/// What is known about the daemon and its grippers.
struct Cell {
    bool reachable = false;
    std::string error = "not asked yet";  ///< why not reachable
    std::string version;                  ///< the reply to GetVersion
    std::vector<CellGripper> grippers;    ///< each device string once; those that are gone last

    /// Null if there is none.
    CellGripper* Find(const std::string& device);
    const CellGripper* Find(const std::string& device) const;

    /// Takes the list of the daemon. Grippers that are not in it are kept, without data.
    /// @return whether something has changed
    bool UpdateList(const std::vector<std::string>& devices);

    /// The daemon cannot be reached: no data is valid.
    void MarkUnreachable(const std::string& reason);

    /// All but the values.
    nlohmann::ordered_json Json() const;

    /// A row for each gripper, in the order of Json(): position, state, flags (1 fault,
    /// 2 temperature fault, 4 temperature warning, 8 maintenance, 16 possibly no process data),
    /// age in milliseconds, motions; null without data.
    nlohmann::ordered_json Values(CellGripper::TimePoint now) const;
};

}  // namespace tavrik
