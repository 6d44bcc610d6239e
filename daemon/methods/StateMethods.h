#pragma once

#include <string>

#include "daemon/methods/GripperMethod.h"
#include "pellix/CorvaneGripper.h"

// Methods that return what a gripper last reported.

// On purpose: only returns kStatusRefused, because masters send process data without a request.
class UpdatePDIN : public GripperMethod {
public:
    explicit UpdatePDIN(GripperManager* manager) : GripperMethod(manager, "UpdatePDIN", "i:S") {}
    void execute(const xmlrpc_c::paramList& params, xmlrpc_c::value* result) override;
};

/// Returns bytes 0, 1 and 3 of the process input data as one number, byte 0 lowest.
class GetPDINExcerpt : public GripperCall<int> {
public:
    explicit GetPDINExcerpt(GripperManager* manager);
};

class GetState : public GripperCall<int> {
public:
    explicit GetState(GripperManager* manager)
        : GripperCall(manager, "GetState", "i:S", pellix::CorvaneGripper::GetState, -1) {}
};

class GetTempWarn : public GripperCall<bool> {
public:
    explicit GetTempWarn(GripperManager* manager)
        : GripperCall(manager, "GetTempWarn", "b:S", pellix::CorvaneGripper::GetTempWarn, false) {}
};

class GetTempFault : public GripperCall<bool> {
public:
    explicit GetTempFault(GripperManager* manager)
        : GripperCall(manager, "GetTempFault", "b:S", pellix::CorvaneGripper::GetTempFault, false) {
    }
};

class GetFault : public GripperCall<bool> {
public:
    explicit GetFault(GripperManager* manager)
        : GripperCall(manager, "GetFault", "b:S", pellix::CorvaneGripper::GetFault, false) {}
};

class GetMaintenance : public GripperCall<bool> {
public:
    explicit GetMaintenance(GripperManager* manager)
        : GripperCall(manager, "GetMaintenance", "b:S", pellix::CorvaneGripper::GetMaintenance,
                      false) {}
};

class GetPos : public GripperCall<double> {
public:
    explicit GetPos(GripperManager* manager)
        : GripperCall(manager, "GetPos", "d:S", pellix::CorvaneGripper::GetPos,
                      std::numeric_limits<double>::quiet_NaN()) {}
};

/// Returns 0 for a known gripper, -1 for an unknown one, -2 for kNoDevice.
class GetGripperInterface : public GripperMethod {
public:
    explicit GetGripperInterface(GripperManager* manager)
        : GripperMethod(manager, "GetGripperInterface", "i:S") {}
    void execute(const xmlrpc_c::paramList& params, xmlrpc_c::value* result) override;
};
