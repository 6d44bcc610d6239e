#include "bench/FastMasters.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>

#include "simulator/FileDescriptor.h"
#include "tests/support/WaitFor.h"
#include "tests/unit/bench/MasterTty.h"
#include "tests/unit/bench/MastersService.h"

namespace bench {

class FastMastersTest : public testing::Test {
protected:
    /// Lets the masters be served until something comes on `tty`.
    void ServeUntilReadable(const MasterTty& tty) {
        ASSERT_TRUE(masters.Watch(tty.Get()));
        EXPECT_EQ(masters.Serve(), tty.Get());
        masters.Unwatch(tty.Get());
    }

    static constexpr std::string_view kLine = "@PDIN=[9,c4,0,3]\n";

    FastMasters masters{3};
};

TEST_F(FastMastersTest, AnswersWhatEachMasterIsAsked) {
    const MasterTty first(masters.Plug(0));
    const MasterTty last(masters.Plug(2));
    const MastersService service(masters);
    for (const auto* const tty : {&last, &first}) {
        tty->Send("OPERATE()\n");
        EXPECT_EQ(tty->Read(24), "ACK OPERATE\nFIN OPERATE\n");
    }
}

TEST_F(FastMastersTest, StreamsToAllThatArePluggedIn) {
    const MasterTty first(masters.Plug(0));
    masters.SetRate(1000);
    const MasterTty second(masters.Plug(1));
    const MastersService service(masters);
    EXPECT_EQ(second.Read(kLine.size()), kLine);
    EXPECT_EQ(first.Read(kLine.size()), kLine);
}

TEST_F(FastMastersTest, MissedTicksAreMadeUpFor) {
    const MasterTty tty(masters.Plug(0));
    masters.SetRate(1000);
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
    ServeUntilReadable(tty);
    EXPECT_GE(masters.LinesSent(), 5U);
}

TEST_F(FastMastersTest, ARateOfZeroEndsTheStream) {
    const MasterTty tty(masters.Plug(0));
    masters.SetRate(10000);
    ServeUntilReadable(tty);
    masters.SetRate(0);
    const MastersService service(masters);
    EXPECT_TRUE(support::WaitFor([&service] { return service.IsAsleep(); }));
}

TEST_F(FastMastersTest, CountsTheLinesOfAll) {
    const MasterTty first(masters.Plug(0));
    const MasterTty second(masters.Plug(1));
    masters.SetRate(100);
    ServeUntilReadable(first);
    masters.SetRate(0);
    const std::uint64_t sent = masters.LinesSent();
    EXPECT_EQ(sent % 2, 0U);
    masters.Unplug(0);
    EXPECT_EQ(masters.LinesSent(), sent) << "those of a master that is gone count as well";
}

TEST_F(FastMastersTest, AtFullSpeedItFillsTheTtyAndThenWaits) {
    const MasterTty tty(masters.Plug(0));
    masters.SetRate(std::nullopt);
    {
        const MastersService service(masters);
        EXPECT_TRUE(support::WaitFor([&service] { return service.IsAsleep(); }));
    }
    const std::size_t length = masters.LinesSent() * kLine.size();
    EXPECT_GT(length, 4096U);
    const MastersService service(masters);
    EXPECT_EQ(tty.Read(2 * length).size(), 2 * length) << "goes on when there is room again";
}

TEST_F(FastMastersTest, AnswersAlsoWhenTheStreamLeavesNoRoom) {
    const MasterTty tty(masters.Plug(0));
    masters.SetRate(std::nullopt);
    const MastersService service(masters);
    ASSERT_TRUE(support::WaitFor([&service] { return service.IsAsleep(); }));
    std::string requests;
    for (int count = 0; count < 100; ++count) {
        requests += "OPERATE()\n";
    }
    tty.Send(requests);
    std::string text;
    EXPECT_TRUE(support::WaitFor([&text, &tty] {
        text += tty.ReadSome();
        return CountOf("FIN OPERATE\n", text) == 100;
    }));
}

TEST_F(FastMastersTest, UnpluggingHangsTheTtyUp) {
    const MasterTty tty(masters.Plug(0));
    masters.Unplug(0);
    EXPECT_EQ(write(tty.Get(), "x", 1), -1);
    EXPECT_EQ(errno, EIO);
    const MasterTty again(masters.Plug(0));
    const MastersService service(masters);
    again.Send("OPERATE()\n");
    EXPECT_EQ(again.Read(24), "ACK OPERATE\nFIN OPERATE\n");
}

TEST_F(FastMastersTest, RefusesWhatCannotBe) {
    EXPECT_THROW(masters.Plug(3), std::runtime_error);
    EXPECT_THROW(masters.Unplug(3), std::runtime_error);
    EXPECT_THROW(masters.Unplug(0), std::runtime_error);
    masters.Plug(0);
    EXPECT_THROW(masters.Plug(0), std::runtime_error);
}

TEST_F(FastMastersTest, AFileCannotBeWaitedFor) {
    const simulator::FileDescriptor null(open("/dev/null", O_RDONLY | O_CLOEXEC));
    EXPECT_FALSE(masters.Watch(null.Get()));
    EXPECT_THROW(masters.Watch(-1), std::system_error);
}

}  // namespace bench
