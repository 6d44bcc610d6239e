#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "pellix/Pellix.h"
#include "tests/support/FakeMaster.h"
#include "tests/support/LogCapture.h"

/// Fixture with a link in mode 4 on a master with an HVA, for the tests of the gripper classes.
class GripperOnLink : public testing::Test {
protected:
    using Bytes = std::vector<std::uint8_t>;
    using Lines = std::vector<std::string>;

    void SetUp() override;
    void TearDown() override;

    /// Sets the process data as if the master had just reported them.
    void StorePdout(const Bytes& bytes) { link->GetDevice().SetPDOUT(bytes); }
    void StorePdin(const Bytes& bytes) { link->GetDevice().SetPDIN(bytes); }

    /// @return the request lines since the last call
    Lines TakeRequests();

    /// Makes the master report device information with `count` elements. Elements 7 and 8, if
    /// present, have the given values.
    void SetDeviceInfo(std::size_t count, std::uint32_t vendor, std::uint32_t model);

    support::LogCapture log;
    support::FakeMaster master;
    std::unique_ptr<pellix::Pellix> link;
};
