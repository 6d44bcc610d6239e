#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <vector>

#include "client/Gripper.h"
#include "client/GripperSettings.h"
#include "client/ProcessData.h"

namespace tavrik {

/// Reads one value, a number or a boolean, within about a second.
/// @param place of a setting that can be read
/// @throws Failure (NoAnswer) when the reply came so late that it is not the gripper's;
/// (BadAnswer) when it has an unexpected type
nlohmann::ordered_json ReadValue(const Gripper& gripper, const SettingPlace& place);

/// Reads a value that was set; again after 0.1 s if it differs, because a late reply to the setter
/// also ends a read, which then returns the old value.
/// @param wanted the value that was set, as ValueText() returns it
/// @throws Failure as ReadValue()
nlohmann::ordered_json ReadBack(const Gripper& gripper, const SettingPlace& place,
                                const std::string& wanted);

/// Detects by its motion that another client uses a gripper.
class StillnessGuard {
public:
    /// @param gripper must outlive the guard
    explicit StillnessGuard(const Gripper& gripper) : gripper(gripper) {}

    /// Sends nothing to the gripper.
    /// @throws Failure (NotAtRest) if position or state have changed since the first call;
    /// (NoProcessData) if there may be no process data, (NoGripper) without a gripper
    void Check();

    /// Checks until half a second has passed since the first check, so that slow motions are seen.
    void Watch();

private:
    using Clock = std::chrono::steady_clock;

    const Gripper& gripper;
    std::optional<ProcessData> first;
    Clock::time_point start;
};

/// Reads and writes all settings of a gripper. No other client may use the gripper from the first
/// call to the last; a transfer that detects one stops.
class SettingsTransfer {
public:
    /// Called with the part that is done, 0 to 1, after each value.
    using Progress = std::function<void(double)>;

    enum class Result {
        NotWritten,
        Unknown,  ///< sent, but there was no reply
        Written,
        Refused,
    };

    struct Step {
        SettingDifference difference;
        Result result = Result::NotWritten;
        int status = 0;  ///< the daemon's, if refused

        /// `result` in words, as in "refused: status 5".
        std::string ResultText() const;
    };

    /// @param gripper must outlive the transfer
    explicit SettingsTransfer(const Gripper& gripper) : gripper(gripper), guard(gripper) {}

    /// Reads everything, and doubtful zeros twice; takes seconds.
    /// @throws Failure (NotAtRest) if the gripper moves, or its settings change meanwhile;
    /// (NoProcessData) if it may have none, because it then may answer 0 for everything;
    /// (NoAnswer, NoGripper, NoDaemon, BadAnswer)
    GripperSettings Read(const Progress& progress);

    /// Writes the new values one by one; continues after a value that the gripper refuses. Reads
    /// nothing back.
    /// @param before the settings that the differences begin with
    /// @throws Failure as Read(), and (NotSent), when no further value can be written; Steps() then
    /// tells what has been done before
    void Write(const GripperSettings& before, const std::vector<SettingDifference>& differences,
               const Progress& progress);

    /// What Write() has done.
    const std::vector<Step>& Steps() const { return steps; }

    /// Reads everything after a Write(), and values that differ from `wanted` twice: a late reply
    /// to a write also ends a read, which then returns the old value.
    /// @throws Failure as Read()
    GripperSettings ReadBack(const GripperSettings& wanted, const Progress& progress);

private:
    nlohmann::ordered_json TryToRead(const SettingPlace& place) const;
    int ReadInteger(const SettingPlace& place) const;
    std::int64_t ReadChecksum() const;
    void WriteValue(Step& step) const;

    const Gripper& gripper;
    StillnessGuard guard;
    std::vector<Step> steps;
};

}  // namespace tavrik
