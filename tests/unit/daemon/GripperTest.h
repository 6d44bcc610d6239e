#pragma once

#include <gtest/gtest.h>

#include <string>

#include "tests/unit/daemon/GripperCell.h"
#include "tests/unit/daemon/Values.h"

/// Tests that call methods on grippers.
class GripperTest : public testing::Test {
protected:
    /// What a method of the class answers to the arguments.
    template <typename Method, typename... Arguments>
    static std::string Answer(const Arguments&... arguments) {
        Method method(&GripperCell::Manager());
        return values::Execute(method, values::Parameters(arguments...));
    }

    /// Whether a call still holds the link of a gripper that is plugged in.
    static bool IsInUse(const std::string& device) {
        LinkInUse link = GripperCell::Manager().GetLink(device);
        if (link == nullptr) {
            ADD_FAILURE() << device << " is not there";
            return false;
        }
        const pellix::Pellix* const pellix = link.get();
        link.reset();
        return pellix->IsPinned();
    }

    GripperCell cell;
};
