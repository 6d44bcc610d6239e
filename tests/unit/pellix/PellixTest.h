#pragma once

#include <gtest/gtest.h>

#include <memory>

#include "pellix/Pellix.h"
#include "pellix/Protocol.h"
#include "tests/support/FakeMaster.h"
#include "tests/support/LogCapture.h"
#include "tests/support/WaitFor.h"

/// A master with an HVA and a link to it, which Open() or Init() creates.
class PellixTest : public testing::Test {
protected:
    void TearDown() override {
        master.Unplug();  // ends the parser's read
        link.reset();
    }

    void Open() { link = std::make_unique<pellix::Pellix>(master.Path()); }

    unsigned Init() {
        Open();
        return link->Init();
    }

    /// Waits until an initialised link on a master in mode 4 has made the last of its own requests.
    void Settle() {
        constexpr std::size_t kOwnRequests = 6;
        ASSERT_TRUE(support::WaitFor([this] {
            return log.BeginningWith("Active commands: ").size() == kOwnRequests &&
                   log.Contains("Timeout monitor thread active");  // a thread may start late
        }));
    }

    void InitAndSettle() {
        ASSERT_EQ(Init(), pellix::kResultOk);
        Settle();
        master.ClearRequests();
        log.Clear();
    }

    support::LogCapture log;
    support::FakeMaster master;
    std::unique_ptr<pellix::Pellix> link;
};
