#pragma once

#include "daemon/methods/GripperMethod.h"
#include "pellix/MZD.h"

// Methods that move or hold a gripper.

class Grip : public StatusCall<std::uint8_t> {
public:
    explicit Grip(GripperManager* manager)
        : StatusCall(manager, "Grip", "i:Si", pellix::CorvaneGripper::Grip) {}
};

class Release : public StatusCall<std::uint8_t> {
public:
    explicit Release(GripperManager* manager)
        : StatusCall(manager, "Release", "i:Si", pellix::CorvaneGripper::Release) {}
};

class Disable : public StatusCall<> {
public:
    explicit Disable(GripperManager* manager)
        : StatusCall(manager, "Disable", "i:S", pellix::CorvaneGripper::Disable) {}
};

class Reference : public StatusCall<> {
public:
    explicit Reference(GripperManager* manager)
        : StatusCall(manager, "Reference", "i:S", pellix::HVA::Reference,
                     pellix::HVA::IsSupported) {}
};

// On purpose: the signature lacks the boolean parameter, because clients know it in this form.
class Holdfast : public StatusCall<bool> {
public:
    explicit Holdfast(GripperManager* manager)
        : StatusCall(manager, "Holdfast", "i:S", pellix::MZD::Holdfast, pellix::MZD::IsSupported) {}
};
