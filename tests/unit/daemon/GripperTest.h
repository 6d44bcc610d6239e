#pragma once

#include <gtest/gtest.h>

#include <string>

#include "tests/unit/daemon/GripperCell.h"
#include "tests/unit/daemon/Values.h"

/// Fixture of tests that call methods on grippers.
class GripperTest : public testing::Test {
protected:
    /// @return the result of a call with these arguments, as values::Describe()
    template <typename Method, typename... Arguments>
    static std::string Answer(const Arguments&... arguments) {
        Method method(&GripperCell::Manager());
        return values::Execute(method, values::Parameters(arguments...));
    }

    /// @return whether a call still uses the link of this gripper, which must be plugged in
    static bool IsInUse(const std::string& device) {
        LinkInUse link = GripperCell::Manager().GetLink(device);
        if (link == nullptr) {
            ADD_FAILURE() << device << " not found";
            return false;
        }
        const pellix::Pellix* const pellix = link.get();
        link.reset();
        return pellix->IsPinned();
    }

    GripperCell cell;
};
