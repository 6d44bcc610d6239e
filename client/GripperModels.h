#pragma once

#include <span>
#include <string>
#include <string_view>

namespace tavrik {

/// Features that only some models have.
enum class Feature {
    None,               ///< of methods that all models support
    ForceAndReference,  ///< also overrides that can be set
    LedsAndHoldfast,
};

/// A model of gripper that the daemon supports.
struct GripperModel {
    std::string_view name;      ///< the beginning of its product name: "MZD"
    std::string_view logName;   ///< in the daemon's log: "MZD S"
    std::string_view deviceId;  ///< in its device information
    bool hasForceAndReference;
    bool hasLedsAndHoldfast;

    bool Has(Feature feature) const;
};

/// All models. Some share a name.
std::span<const GripperModel> GripperModels();

/// The names of the models that have `feature`, such as "HVA and MZD".
/// @param separator between two names, such as " and "
std::string ModelsWith(Feature feature, const std::string& separator);

/// Whether a gripper may have `feature`.
/// @param model of the gripper, as far as known; one that is ambiguous or unknown may have all
bool MayHave(const std::string& model, Feature feature);

/// Whether a gripper may lack `feature`.
/// @param model as for MayHave(): "HVA or MZD" may be the HVA, "TLM?" the TLM
bool MayLack(const std::string& model, Feature feature);

constexpr const char* kModelNotAsked = "?";

/// The model of a gripper, as far as a client can tell.
struct ModelGuess {
    std::string name;
    std::string from;  ///< its source: "answers", "name" or "nothing"

    /// As printed, with a remark if only the name tells it.
    std::string Text() const { return name + (from == "name" ? " by name" : ""); }
};

/// Narrows the model down by the name that the gripper gives itself.
/// @param byAnswers the result of Gripper::Model(), or kModelNotAsked
/// @param deviceString begins with the gripper's product name, which may be any text
ModelGuess NarrowModel(const std::string& byAnswers, const std::string& deviceString);

}  // namespace tavrik
