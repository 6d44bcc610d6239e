#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "pellix/Pellix.h"
#include "tests/support/FakeMaster.h"
#include "tests/support/LogCapture.h"

/// A link in mode 4 on a master with an HVA, for the tests of the gripper classes.
class GripperOnLink : public testing::Test {
protected:
    using Bytes = std::vector<std::uint8_t>;
    using Lines = std::vector<std::string>;

    void SetUp() override;
    void TearDown() override;

    /// What the master is taken to have reported last.
    void StorePdout(const Bytes& bytes) { link->GetDevice().SetPDOUT(bytes); }
    void StorePdin(const Bytes& bytes) { link->GetDevice().SetPDIN(bytes); }

    /// The request lines since the last call.
    Lines TakeRequests();

    /// The device information has `count` elements; 7 and 8, if there are, are these.
    void SetDeviceInfo(std::size_t count, std::uint32_t vendor, std::uint32_t model);

    support::LogCapture log;
    support::FakeMaster master;
    std::unique_ptr<pellix::Pellix> link;
};
