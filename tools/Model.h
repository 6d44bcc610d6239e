#pragma once

#include <string>

namespace tavrikctl {

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

}  // namespace tavrikctl
