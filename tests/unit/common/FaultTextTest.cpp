#include <gtest/gtest.h>

#include <string>

#include "tests/unit/daemon/fence/EchoCall.h"

TEST(FaultTextTest, InvalidLargeIntegerIsAFault) {
    for (const char* text : {"x", "", "1|||", "99999999999999999999"}) {
        EXPECT_TRUE(Contains(Answer(std::string("<i8>") + text + "</i8>"), "<fault>")) << text;
        EXPECT_TRUE(Contains(Answer(std::string("<ex:i8>") + text + "</ex:i8>"), "<fault>"));
    }
    EXPECT_TRUE(Contains(Answer("<i8>x</i8>"),
                         "value is invalid because it does not represent a 64 bit integer"));
}

TEST(FaultTextTest, OtherFaultsKeepTheirTexts) {
    EXPECT_TRUE(Contains(Answer("<int>x</int>"), "'x'"));
    EXPECT_TRUE(Contains(Answer("<double>x</double>"), "'x'"));
}
