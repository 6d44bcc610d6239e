#include "bench/CellOptions.h"

#include <gtest/gtest.h>

#include "simulator/TextTools.h"

namespace bench {
namespace {

CellOptions ParseCell(const std::vector<std::string>& arguments) {
    return ParseCellOptions(arguments);
}

TEST(CellOptionsTest, ReadsAll) {
    const CellOptions options = ParseCell({"--masters", "64", "--rate", "full", "--unplugged",
                                           "--fin-file", "f", "--", "sleep", "--help"});
    EXPECT_EQ(options.masters, 64U);
    EXPECT_EQ(options.rate, std::nullopt);
    EXPECT_TRUE(options.unplugged);
    EXPECT_EQ(options.finFile, "f");
    EXPECT_EQ(options.command, (std::vector<std::string>{"sleep", "--help"}));
    EXPECT_FALSE(options.help);
}

TEST(CellOptionsTest, HasOneMasterByDefault) {
    const CellOptions options = ParseCell({"--", "sleep"});
    EXPECT_EQ(options.masters, 1U);
    EXPECT_EQ(options.rate, 100U);
    EXPECT_FALSE(options.unplugged);
    EXPECT_EQ(options.finFile, "");
}

TEST(CellOptionsTest, HelpNeedsNoCommand) {
    EXPECT_TRUE(ParseCell({"--help"}).help);
}

TEST(CellOptionsTest, RefusesWhatItDoesNotKnow) {
    using Words = std::vector<std::string>;
    for (const Words& words :
         {Words{}, Words{"--"}, Words{"sleep"}, Words{"--masters"},
          Words{"--masters", "65", "--", "x"}, Words{"--masters", "-1", "--", "x"},
          Words{"--rate", "fast", "--", "x"}, Words{"--rate", "10001", "--", "x"},
          Words{"--pdin-hz", "1", "--", "x"}}) {
        EXPECT_THROW(ParseCell(words), simulator::UsageError);
    }
}

}  // namespace
}  // namespace bench
