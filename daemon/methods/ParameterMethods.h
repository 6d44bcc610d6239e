#pragma once

#include "daemon/methods/GripperMethod.h"
#include "pellix/HVA.h"

// Methods that read and write a gripper's settings: limits, force, overrides, reference direction,
// checksum, storing.

// On purpose: sign-extends the 32-bit checksum, because clients compare it as a signed number. One
// with its top bit set is negative.
class GetParameterChecksum : public GripperCall<std::int64_t> {
public:
    explicit GetParameterChecksum(GripperManager* manager)
        : GripperCall(
              manager, "GetParameterChecksum", "i:S",
              [](pellix::Pellix& link) {
                  return std::int64_t{static_cast<std::int32_t>(
                      pellix::CorvaneGripper::GetParameterChecksum(link))};
              },
              0) {}
};

class StoreRemanent : public StatusCall<> {
public:
    explicit StoreRemanent(GripperManager* manager)
        : StatusCall(manager, "StoreRemanent", "i:S", pellix::CorvaneGripper::StoreRemanent) {}
};

class GetReleaseLimit : public GripperCall<double, std::uint8_t> {
public:
    explicit GetReleaseLimit(GripperManager* manager)
        : GripperCall(manager, "GetReleaseLimit", "d:Si", pellix::CorvaneGripper::GetReleaseLimit,
                      std::numeric_limits<double>::quiet_NaN()) {}
};

class GetNoPartLimit : public GripperCall<double, std::uint8_t> {
public:
    explicit GetNoPartLimit(GripperManager* manager)
        : GripperCall(manager, "GetNoPartLimit", "d:Si", pellix::CorvaneGripper::GetNoPartLimit,
                      std::numeric_limits<double>::quiet_NaN()) {}
};

class GetForce : public GripperCall<std::uint8_t, std::uint8_t> {
public:
    explicit GetForce(GripperManager* manager)
        : GripperCall(manager, "GetForce", "i:Si", pellix::HVA::GetForce, 0,
                      pellix::HVA::IsSupported) {}
};

class GetOverrideRelease : public GripperCall<std::uint8_t> {
public:
    explicit GetOverrideRelease(GripperManager* manager)
        : GripperCall(manager, "GetOverrideRelease", "i:S",
                      pellix::CorvaneGripper::GetOverrideRelease, 0) {}
};

class GetOverrideGrip : public GripperCall<std::uint8_t> {
public:
    explicit GetOverrideGrip(GripperManager* manager)
        : GripperCall(manager, "GetOverrideGrip", "i:S", pellix::CorvaneGripper::GetOverrideGrip,
                      0) {}
};

class GetReferenceDirection : public GripperCall<bool> {
public:
    explicit GetReferenceDirection(GripperManager* manager)
        : GripperCall(manager, "GetReferenceDirection", "b:S", pellix::HVA::GetReferenceDirection,
                      false, pellix::HVA::IsSupported) {}
};

class SetReleaseLimit : public StatusCall<std::uint8_t, double> {
public:
    explicit SetReleaseLimit(GripperManager* manager)
        : StatusCall(manager, "SetReleaseLimit", "i:Sid", pellix::CorvaneGripper::SetReleaseLimit) {
    }
};

class SetNoPartLimit : public StatusCall<std::uint8_t, double> {
public:
    explicit SetNoPartLimit(GripperManager* manager)
        : StatusCall(manager, "SetNoPartLimit", "i:Sid", pellix::CorvaneGripper::SetNoPartLimit) {}
};

class SetForce : public StatusCall<std::uint8_t, std::uint8_t> {
public:
    explicit SetForce(GripperManager* manager)
        : StatusCall(manager, "SetForce", "i:Sii", pellix::HVA::SetForce,
                     pellix::HVA::IsSupported) {}
};

class SetOverrideRelease : public StatusCall<std::uint8_t> {
public:
    explicit SetOverrideRelease(GripperManager* manager)
        : StatusCall(manager, "SetOverrideRelease", "i:Si", pellix::HVA::SetOverrideRelease,
                     pellix::HVA::IsSupported) {}
};

class SetOverrideGrip : public StatusCall<std::uint8_t> {
public:
    explicit SetOverrideGrip(GripperManager* manager)
        : StatusCall(manager, "SetOverrideGrip", "i:Si", pellix::HVA::SetOverrideGrip,
                     pellix::HVA::IsSupported) {}
};

class SetReferenceDirection : public StatusCall<bool> {
public:
    explicit SetReferenceDirection(GripperManager* manager)
        : StatusCall(manager, "SetReferenceDirection", "i:Sb", pellix::HVA::SetReferenceDirection,
                     pellix::HVA::IsSupported) {}
};
