#include "simulator/UeventSender.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>

#include "tests/unit/simulator/UeventMonitor.h"

namespace simulator {
namespace {

class UeventSenderTest : public testing::Test {
protected:
    UeventSenderTest() : sender(folder) {}
    ~UeventSenderTest() override { std::filesystem::remove_all(folder); }

    static std::filesystem::path MakeFolder() {
        std::string name = "/tmp/uevent-test.XXXXXX";
        return mkdtemp(name.data());
    }

    const std::filesystem::path folder = MakeFolder();
    UeventSender sender;
};

std::uint32_t NumberAt(const std::string& message, std::size_t offset) {
    std::uint32_t number = 0;
    std::memcpy(&number, message.data() + offset, sizeof number);
    return number;
}

TEST_F(UeventSenderTest, AMessageIsOneThatLibudevTakes) {
    const UeventMonitor monitor(folder);
    sender.Send({"ACTION=add", "SUBSYSTEM=tty"});
    const auto message = monitor.Receive();
    ASSERT_TRUE(message);
    EXPECT_EQ(message->substr(0, 8), std::string("libudev\0", 8));
    EXPECT_EQ(ntohl(NumberAt(*message, 8)), 0xfeedcafeU);
    EXPECT_EQ(NumberAt(*message, 12), 40U) << "size of the header";
    EXPECT_EQ(NumberAt(*message, 16), 40U) << "offset of the properties";
    EXPECT_EQ(NumberAt(*message, 20), message->size() - 40);
    EXPECT_EQ(message->substr(40), std::string("ACTION=add\0SUBSYSTEM=tty\0", 25));
}

TEST_F(UeventSenderTest, EveryMonitorGetsEveryEventOnce) {
    const UeventMonitor first(folder, "event3");
    const UeventMonitor second(folder, "event17");
    sender.Send({"ACTION=add"});
    EXPECT_TRUE(first.Receive());
    EXPECT_TRUE(second.Receive());
    EXPECT_FALSE(first.HasMessage());
    EXPECT_FALSE(second.HasMessage());
}

TEST_F(UeventSenderTest, AMonitorThatHasGoneIsNoObstacle) {
    std::optional<UeventMonitor> gone(std::in_place, folder, "event3");
    gone.reset();
    const UeventMonitor monitor(folder, "event4");
    sender.Send({"ACTION=add"});
    EXPECT_TRUE(monitor.Receive());
}

TEST_F(UeventSenderTest, EventsWaitForAMonitorThatIsBehind) {
    constexpr int kCount = 100;
    const UeventMonitor monitor(folder);
    for (int number = 0; number < kCount; ++number) {
        sender.Send({"SUBSYSTEM=tty", "SEQNUM=" + std::to_string(number)});
    }
    for (int number = 0; number < kCount; ++number) {
        const auto message = monitor.Receive();
        ASSERT_TRUE(message);
        ASSERT_EQ(Property(*message, "SEQNUM"), std::to_string(number));
    }
    EXPECT_FALSE(monitor.HasMessage());
}

TEST_F(UeventSenderTest, AMonitorThatNeverReadsMissesEventsInTheEnd) {
    const UeventMonitor monitor(folder);
    const auto sendMany = [this] {
        for (int number = 0; number < 1000; ++number) {
            sender.Send({"ACTION=change"});
        }
    };
    EXPECT_THROW(sendMany(), std::runtime_error);
}

}  // namespace
}  // namespace simulator
