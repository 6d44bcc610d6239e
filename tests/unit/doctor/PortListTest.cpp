#include "doctor/PortList.h"

#include <gtest/gtest.h>

namespace tavrik {
namespace {

TEST(PortListTest, RangesAndSinglePorts) {
    const PortList list("10-12,44222,50000-50001");
    for (const unsigned port : {10U, 11U, 12U, 44222U, 50000U, 50001U}) {
        EXPECT_TRUE(list.Contains(port)) << port;
    }
    for (const unsigned port : {9U, 13U, 44221U, 44223U, 50002U}) {
        EXPECT_FALSE(list.Contains(port)) << port;
    }
}

TEST(PortListTest, AnEmptyOrStrangeListHasNone) {
    EXPECT_FALSE(PortList("").Contains(0));
    EXPECT_FALSE(PortList(",x,-").Contains(0));
}

}  // namespace
}  // namespace tavrik
