#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

namespace tavrikctl {

/// What the gripper's master sent last, all of one moment.
struct ProcessData {
    /// @param excerpt the answer of GetPDINExcerpt
    explicit ProcessData(int excerpt);

    /// The flags that are set, in words, with commas between.
    std::string FlagText() const;

    /// Adds every value to a JSON object.
    void AddTo(nlohmann::ordered_json& object) const;

    bool operator==(const ProcessData&) const = default;

    double position;  ///< in the gripper's unit, in steps of 0.01
    int state;        ///< 0 to 15; the gripper's manual tells the meaning
    bool fault;
    bool tempFault;
    bool tempWarn;
    bool maintenance;
    bool certain;  ///< false when all is zero: that is also the answer without process data
};

/// A position or limit with its two decimals.
std::string HundredthsText(double value);

}  // namespace tavrikctl
