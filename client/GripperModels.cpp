#include "client/GripperModels.h"

#include <algorithm>
#include <array>

namespace tavrik {

namespace {

constexpr std::array kModels{
    GripperModel{"TLM", "TLM", "10", false, false},
    GripperModel{"HVA", "HVA", "20", true, false},
    GripperModel{"MZD", "MZD S", "40", true, true},
    GripperModel{"MZD", "MZD L", "50", true, true},
};

}  // namespace

bool GripperModel::Has(Feature feature) const {
    switch (feature) {
        case Feature::ForceAndReference:
            return hasForceAndReference;
        case Feature::LedsAndHoldfast:
            return hasLedsAndHoldfast;
        case Feature::None:
            break;
    }
    return true;
}

std::span<const GripperModel> GripperModels() {
    return kModels;
}

std::string ModelsWith(Feature feature, const std::string& separator) {
    std::string names;
    std::string_view last;
    for (const GripperModel& model : kModels) {
        if (model.Has(feature) && model.name != last) {
            last = model.name;
            names += (names.empty() ? "" : separator) + std::string(last);
        }
    }
    return names;
}

bool MayHave(const std::string& model, Feature feature) {
    const auto* const known = std::ranges::find(kModels, model, &GripperModel::name);
    return known == kModels.end() || known->Has(feature);
}

bool MayLack(const std::string& model, Feature feature) {
    return std::ranges::any_of(kModels, [&](const GripperModel& each) {
        return model.find(each.name) != std::string::npos && !each.Has(feature);
    });
}

ModelGuess NarrowModel(const std::string& byAnswers, const std::string& deviceString) {
    for (const GripperModel& model : kModels) {
        const bool isPossible =
            byAnswers.ends_with('?') || byAnswers.find(model.name) != std::string::npos;
        if (isPossible && byAnswers != model.name && deviceString.starts_with(model.name)) {
            return {std::string(model.name), "name"};
        }
    }
    return {byAnswers, byAnswers == kModelNotAsked ? "nothing" : "answers"};
}

}  // namespace tavrik
