#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "tests/support/Allocations.h"
#include "tests/support/LogCapture.h"
#include "tests/unit/pellix/InputParserTest.h"

using support::Messages;
using Bytes = std::vector<std::uint8_t>;

/// Tests of the parser's memory use, and of its behaviour when out of memory.
class InputParserMemoryTest : public InputParserTest {
protected:
    static constexpr std::size_t kFlat =
        65536;  // bytes; a smaller difference counts as constant memory use
};

TEST_F(InputParserMemoryTest, MemoryUseIsConstantOverAMillionLines) {
    constexpr int kLinesPerRead = 200;
    std::string input;
    for (int line = 0; line < kLinesPerRead; ++line) {
        input += "@PDIN=[1,2,3,4]\n";
    }
    Parse(input);
    const std::size_t before = support::LiveBytes();
    for (int line = 0; line < 1'000'000; line += kLinesPerRead) {
        Parse(input);
    }
    EXPECT_LT(support::LiveBytes(), before + kFlat);
    EXPECT_EQ(device.GetPDIN(), (Bytes{1, 2, 3, 4}));
}

TEST_F(InputParserMemoryTest, MemoryUseIsConstantIfEveryReadEndsInAPartialLine) {
    Parse("@PDIN=[1]\n@PDI");
    const std::size_t before = support::LiveBytes();
    for (int pass = 0; pass < 20'000; ++pass) {
        Parse("@PDIN=[1]\n@PDI");
        if (pass % 100 == 0) {
            log.Clear();
        }
    }
    EXPECT_LT(support::LiveBytes(), before + kFlat);
}

TEST_F(InputParserMemoryTest, FailedAppendIsRetriedOnAnEmptyStream) {
    const std::string input = "@ID=" + std::string(3000, 'x') + "\n@MODE=4\n";
    connection->input.push_back(input);
    {
        const support::FailingAllocations failure({.smallest = 1500});
        handler.Parse();
    }
    EXPECT_EQ(log.All(), (Messages{"Error after adding input to stream: 1",
                                   "Trying to clear stream", "Setting device mode to 4"}));
    EXPECT_EQ(deviceHandler.GetID(), std::string(3000, 'x'));
}

TEST_F(InputParserMemoryTest, AppendThatFailsTwiceDropsTheInputOfItsPass) {
    connection->input.push_back("@MODE=3\n@ID=" + std::string(3000, 'x') + "\n");
    {
        const support::FailingAllocations failure({.smallest = 1500, .count = 1000});
        handler.Parse();
    }
    EXPECT_EQ(
        log.All(),
        (Messages{"Error after adding input to stream: 1", "Trying to clear stream",
                  "Failed to add input after clearing stream: 1. Creating new stream object."}));
    EXPECT_EQ(device.GetMode(), 0);
    log.Clear();
    Parse("@ID=1\n");
    EXPECT_EQ(deviceHandler.GetID(), "1");
    EXPECT_TRUE(log.All().empty());
}

TEST_F(InputParserMemoryTest, PartialLineThatCannotBeReadEmptiesTheStream) {
    std::string shortLines;
    while (shortLines.size() < 4000) {
        shortLines += "@EV=1\n";
    }
    Parse(shortLines);  // the stream allocates its storage, the partial line does not yet
    connection->input.push_back("@ID=1\n" + std::string(3000, 'x'));
    {
        const support::FailingAllocations failure({.smallest = 1500});
        handler.Parse();
    }
    EXPECT_EQ(log.All(), (Messages{"getline() failed", "getline() put stream into bad state"}));
    EXPECT_EQ(deviceHandler.GetID(), "1");
    log.Clear();
    Parse("@ID=2\n");
    EXPECT_EQ(deviceHandler.GetID(), "2");
    EXPECT_EQ(log.All(),
              Messages{"Clearing previous input stream error: 5"});  // bad bit and fail bit
}

TEST_F(InputParserMemoryTest, InputAfterALineThatCouldNotBeLoggedIsComplete) {
    Parse("@EV=" + std::string(3000, 'x') + "\n");  // the stream allocates its storage
    connection->input.push_back("@ID=1\n" + std::string(300, 'x'));
    {
        const support::FailingAllocations failure({.smallest = 100, .count = 2});
        EXPECT_THROW(handler.Parse(), std::bad_alloc);
    }
    Parse("@ID=2\n@EV=1\n");
    EXPECT_EQ(deviceHandler.GetID(), "2");
}
