#include <gtest/gtest.h>

#include <ctime>
#include <string>
#include <thread>

#include "common/NextFunction.h"

extern "C" void DateToString(std::time_t datetime, const char** dateStringP);

namespace {

std::string DateText(std::time_t time) {
    const char* text = nullptr;
    DateToString(time, &text);
    if (text == nullptr) {
        return "none";
    }
    std::string copy = text;
    xmlrpc_strfree(text);
    return copy;
}

}  // namespace

TEST(DateHeaderTest, EachSecondHasItsOwnText) {
    for (int round = 0; round < 2; ++round) {
        EXPECT_EQ(DateText(0), "Thu, 01 Jan 1970 00:00:00 UTC");
        EXPECT_EQ(DateText(1'000'000'000), "Sun, 09 Sep 2001 01:46:40 UTC");
        EXPECT_EQ(DateText(1'000'000'000), "Sun, 09 Sep 2001 01:46:40 UTC");
        EXPECT_EQ(DateText(1'000'000'001), "Sun, 09 Sep 2001 01:46:41 UTC");
    }
}

TEST(DateHeaderTest, EachThreadHasItsOwnText) {
    EXPECT_EQ(DateText(1'000'000'000), "Sun, 09 Sep 2001 01:46:40 UTC");
    std::thread([] { EXPECT_EQ(DateText(0), "Thu, 01 Jan 1970 00:00:00 UTC"); }).join();
    EXPECT_EQ(DateText(1'000'000'000), "Sun, 09 Sep 2001 01:46:40 UTC");
}
