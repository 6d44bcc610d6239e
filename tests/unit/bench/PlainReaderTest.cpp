#include "bench/PlainReader.h"

#include <gtest/gtest.h>
#include <sys/ioctl.h>

#include <atomic>
#include <memory>
#include <string>
#include <system_error>
#include <thread>

#include "simulator/Pty.h"
#include "tests/support/WaitFor.h"
#include "tests/unit/bench/MasterTty.h"

namespace bench {

class PlainReaderTest : public testing::Test {
protected:
    bool HasWaiting(int count) const {
        int waiting = 0;
        ioctl(tty.Get(), FIONREAD, &waiting);
        return waiting == count;
    }

    /// Has the reader read all of `text`, and then hangs the tty up.
    void Read(const std::string& text) {
        port->Send(text);
        ASSERT_TRUE(
            support::WaitFor([this, &text] { return HasWaiting(static_cast<int>(text.size())); }));
        const std::jthread thread([this] { reader.Run(stopping); });
        ASSERT_TRUE(support::WaitFor([this] { return HasWaiting(0); }));
        port.reset();
    }

    std::atomic<bool> stopping = false;
    std::unique_ptr<simulator::PtyPort> port =
        std::make_unique<simulator::PtyPort>(simulator::PtyPort::Start::Cooked);
    MasterTty tty{port->NodePath()};
    PlainReader reader{port->NodePath()};
};

TEST_F(PlainReaderTest, MakesTheTtyRaw) {
    EXPECT_TRUE(port->IsRaw());
}

TEST_F(PlainReaderTest, CountsLinesUntilTheTtyIsHungUp) {
    Read("@PDIN=[9,c4,0,3]\n@PDIN=[9,c4,0,3]\n@PDIN=[9,");
    EXPECT_EQ(reader.Lines(), 2U);
    EXPECT_EQ(reader.WrongLines(), 0U);
}

TEST_F(PlainReaderTest, CountsWhatIsNoProcessData) {
    Read("@PDIN=[9,c4,0,3]\n@PDIN=[9,c4]\nFIN PDOUT\n@PDIN=[9,c4,0,3]\n");
    EXPECT_EQ(reader.Lines(), 4U);
    EXPECT_EQ(reader.WrongLines(), 2U);
}

TEST_F(PlainReaderTest, TheFirstLineMayHaveLostItsBeginning) {
    Read("c4,0,3]\n@PDIN=[9,c4,0,3]\n");
    EXPECT_EQ(reader.Lines(), 2U);
    EXPECT_EQ(reader.WrongLines(), 0U);
}

TEST_F(PlainReaderTest, StopsWhenItIsToldTo) {
    const std::jthread thread([this] { reader.Run(stopping); });
    stopping = true;
}

TEST(PlainReaderOpenTest, NeedsATty) {
    EXPECT_THROW(PlainReader("/nonexistent"), std::system_error);
    EXPECT_THROW(PlainReader("/dev/null"), std::system_error);
}

}  // namespace bench
