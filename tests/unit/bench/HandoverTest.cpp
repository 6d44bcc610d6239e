#include "bench/Handover.h"

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>

#include "bench/FastMasters.h"
#include "simulator/Pty.h"
#include "tests/support/WaitFor.h"
#include "tests/unit/bench/MastersService.h"

namespace bench {
namespace {

TEST(HandoverTest, GoesToTheMasterAndBack) {
    FastMasters masters(1);
    const std::string path = masters.Plug(0);
    masters.SetRate(1000);
    const MastersService service(masters);
    Handover handover(path);
    for (int round = 0; round < 3; ++round) {
        EXPECT_GT(handover.Round().count(), 0);
    }
}

std::string FailureOf(Handover& handover) {
    try {
        handover.Round();
        return "none";
    } catch (const std::runtime_error& error) {
        return error.what();
    }
}

TEST(HandoverTest, NoOtherLineIsTheAnswer) {
    simulator::PtyPort port(simulator::PtyPort::Start::Raw);
    Handover handover(port.NodePath());
    const std::jthread master([&port] {
        if (support::WaitFor([&port] { return !port.Read().empty(); })) {
            port.Send("ACK PDOUT\nFIN PDIN\nFIN PDOU\n");
        }
    });
    EXPECT_EQ(FailureOf(handover), "the master does not answer");
}

TEST(HandoverTest, AMasterThatIsGoneTakesNoRequest) {
    auto port = std::make_unique<simulator::PtyPort>(simulator::PtyPort::Start::Raw);
    Handover handover(port->NodePath());
    port.reset();
    EXPECT_EQ(FailureOf(handover), "the tty takes no request");
}

TEST(HandoverTest, NeedsATty) {
    EXPECT_THROW(Handover("/nonexistent"), std::system_error);
}

}  // namespace
}  // namespace bench
