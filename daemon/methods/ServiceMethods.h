#pragma once

#include <xmlrpc-c/base.hpp>
#include <xmlrpc-c/registry.hpp>

#include "pellix/GripperManager.h"

// Methods that do not address a gripper.

/// Returns version, revision and build time of the daemon as one string.
class GetVersion : public xmlrpc_c::method {
public:
    GetVersion();
    void execute(const xmlrpc_c::paramList& params, xmlrpc_c::value* result) override;
};

/// Returns the device strings of the usable grippers, in the order in which their masters were
/// added. May block as LinkRegistry::GetGrippers().
class GetGrippers : public xmlrpc_c::method {
public:
    /// @param gripperManager not owned; outlives the method
    explicit GetGrippers(GripperManager* gripperManager);
    void execute(const xmlrpc_c::paramList& params, xmlrpc_c::value* result) override;

private:
    GripperManager* const gripperManager;
};
