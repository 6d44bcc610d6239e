#pragma once

#include <string_view>

namespace simulator {

/// What tells the gripper models apart. Positions and lengths in millimetres.
struct GripperModel {
    std::string_view name;
    unsigned deviceId;
    double stroke;          ///< position of the outer end stop; the inner one is 0
    double speed;           ///< mm/s at an override of 100 %
    bool adjustable;        ///< force, reference run and reference direction
    bool lightsAndHolding;  ///< LED ring and holdfast
};

/// @return null for a name that is not "TLM", "HVA", "MZD-S" or "MZD-L".
const GripperModel* FindGripperModel(std::string_view name);

}  // namespace simulator
