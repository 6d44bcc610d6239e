#include "simulator/GripperModel.h"

#include <algorithm>
#include <array>

namespace simulator {

namespace {
constexpr std::array<GripperModel, 4> kModels{{
    {"TLM", 10, 20.0, 80.0, false, false},
    {"HVA", 20, 30.0, 60.0, true, false},
    {"MZD-S", 40, 24.0, 80.0, true, true},
    {"MZD-L", 50, 48.0, 80.0, true, true},
}};
}

const GripperModel* FindGripperModel(std::string_view name) {
    const auto* const place = std::find_if(
        kModels.begin(), kModels.end(), [name](const auto& model) { return model.name == name; });
    return place == kModels.end() ? nullptr : &*place;
}

}  // namespace simulator
