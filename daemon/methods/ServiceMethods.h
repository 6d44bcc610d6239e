#pragma once

#include <xmlrpc-c/base.hpp>
#include <xmlrpc-c/registry.hpp>

#include "pellix/GripperManager.h"

/// Methods that address no gripper.

/// Version, revision and build time of the daemon.
class GetVersion : public xmlrpc_c::method {
public:
    GetVersion();
    void execute(const xmlrpc_c::paramList& params, xmlrpc_c::value* result) override;
};

/// Device strings of the usable grippers, in the order in which their masters were added.
class GetGrippers : public xmlrpc_c::method {
public:
    /// @param manager not owned; outlives the method
    explicit GetGrippers(GripperManager* manager);
    void execute(const xmlrpc_c::paramList& params, xmlrpc_c::value* result) override;

private:
    GripperManager* const gripperManager;
};
