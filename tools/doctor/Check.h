#pragma once

#include "tools/doctor/Finding.h"

namespace tavrikctl {

/// One step on the road from the robot to the gripper. Looks, and changes nothing.
class Check {
public:
    Check() = default;
    Check(const Check&) = delete;
    Check& operator=(const Check&) = delete;
    virtual ~Check() = default;

    virtual Findings Run() = 0;
};

}  // namespace tavrikctl
