#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

namespace tavrik {

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

constexpr const char* kModelNotAsked = "?";

/// The model of a gripper, as far as a client can know it.
struct Model {
    std::string name;
    std::string from;  ///< what tells it: "answers", "name" or "nothing"

    /// For people.
    std::string Text() const { return name + (from == "name" ? " by name" : ""); }
};

/// What answers have told, made more exact by the name that the gripper gives itself.
/// @param told as Gripper::Model() says it, or kModelNotAsked
/// @param deviceString its beginning is the gripper's product name, which may be any text
Model NarrowModel(const std::string& told, const std::string& deviceString);

}  // namespace tavrik
