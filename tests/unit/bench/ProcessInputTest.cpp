#include "bench/ProcessInput.h"

#include <gtest/gtest.h>

#include <string>

namespace bench {
namespace {

TEST(ProcessInputTest, DecodesTheFourBytes) {
    ProcessInput input{};
    EXPECT_TRUE(DecodeProcessInput("@PDIN=[9,c4,0,3]", input));
    EXPECT_EQ(input, (ProcessInput{0x09, 0xc4, 0x00, 0x03}));
    EXPECT_TRUE(DecodeProcessInput("@PDIN=[ff,0,0,ff]", input));
    EXPECT_EQ(input, (ProcessInput{0xff, 0x00, 0x00, 0xff}));
}

TEST(ProcessInputTest, RefusesEverythingElse) {
    ProcessInput input{};
    for (const std::string line :
         {"", "@PDIN=[", "@PDIN=[9,c4,0,3", "PDIN=[9,c4,0,3]", "@PDOUT=[9,c4,0,3]",
          "@PDIN=[9,c4,0]", "@PDIN=[9,c4,0,3,1]", "@PDIN=[9,c4,0,3]]", "@PDIN=[9,c4,,3]",
          "@PDIN=[9,c4,0,100]", "@PDIN=[9;c4,0,3]", "c4,0,3]"}) {
        EXPECT_FALSE(DecodeProcessInput(line, input)) << line;
    }
}

}  // namespace
}  // namespace bench
