#include "doctor/ThisMachine.h"

#include <gtest/gtest.h>

namespace tavrik {
namespace {

TEST(ThisMachineTest, LoopbackIsThisMachineInAnyForm) {
    for (const char* const host : {"127.0.0.1", "127.1", "localhost", "2130706433", "0.0.0.0"}) {
        EXPECT_TRUE(IsThisMachine(host)) << host;
    }
}

TEST(ThisMachineTest, OthersAreNot) {
    for (const char* const host : {"192.0.2.1", "no such name", ""}) {
        EXPECT_FALSE(IsThisMachine(host)) << host;
    }
}

}  // namespace
}  // namespace tavrik
