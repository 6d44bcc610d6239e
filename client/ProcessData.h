#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

namespace tavrik {

/// State codes of a gripper. A model may have others, too.
enum class GripperState {
    Off = 0,
    NeedsReference = 1,
    Referencing = 2,
    Releasing = 3,
    Released = 4,
    Gripping = 5,
    Holding = 6,
    NoPart = 7,  ///< gripped without a part
    Referenced = 8,
    Fault = 15,
};

/// What the gripper's master sent last, all from one moment.
struct ProcessData {
    /// @param excerpt the reply to GetPDINExcerpt
    explicit ProcessData(int excerpt);

    /// The flags that are set, in words, separated by commas; `none` if there are none.
    std::string FlagText(const std::string& none = "") const;

    bool HasFlags() const { return fault || tempFault || tempWarn || maintenance; }

    /// Adds every value to a JSON object.
    void AddTo(nlohmann::ordered_json& object) const;

    bool operator==(const ProcessData&) const = default;

    GripperState State() const { return static_cast<GripperState>(state); }

    /// Whether a fault stops the gripper.
    bool IsFaulty() const { return fault || tempFault || State() == GripperState::Fault; }

    double position;  ///< in the gripper's unit, in steps of 0.01
    int state;        ///< 0 to 15; see the gripper's manual
    bool fault;
    bool tempFault;
    bool tempWarn;
    bool maintenance;
    bool certain;  ///< false if all is zero, which may also mean no process data
};

}  // namespace tavrik
