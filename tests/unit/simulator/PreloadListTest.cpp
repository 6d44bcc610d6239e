#include "simulator/PreloadList.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <stdexcept>
#include <string>

#include "simulator/Testbed.h"

namespace simulator {
namespace {

TEST(PreloadListTest, NamesOurLibraryInTheTestbedAndThenUmockdevs) {
    const Testbed testbed;
    const std::string list = PreloadList(testbed.Folder(), PRELOAD_FOLDER);
    const auto place = list.find(testbed.Folder().string() + "/");
    ASSERT_NE(place, std::string::npos) << list;
    EXPECT_GT(list.find(":libumockdev-preload.so"), place) << list;
}

TEST(PreloadListTest, WhatTheUserPreloadsComesFirst) {
    const Testbed testbed;
    setenv("LD_PRELOAD", "users.so", 1);  // NOLINT(concurrency-mt-unsafe)
    const std::string list = PreloadList(testbed.Folder(), PRELOAD_FOLDER);
    unsetenv("LD_PRELOAD");  // NOLINT(concurrency-mt-unsafe)
    EXPECT_TRUE(list.starts_with("users.so:" + testbed.Folder().string())) << list;
}

TEST(PreloadListTest, ALibraryThatCannotBeLoadedIsAnError) {
    const Testbed testbed;
    EXPECT_THROW(PreloadList(testbed.Folder(), testbed.Folder() / "nowhere"), std::runtime_error);
}

}  // namespace
}  // namespace simulator
