#include "simulator/Recording.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace simulator {
namespace {

class RecordingTest : public testing::Test {
protected:
    ~RecordingTest() override { std::filesystem::remove_all(folder); }

    Recording Read(const std::string& text) const {
        std::ofstream(path) << text;
        return ReadRecording(path);
    }

    /// What is said of a file that cannot be read, without its path.
    std::string ReasonAgainst(const std::string& text) const {
        try {
            Read(text);
        } catch (const std::runtime_error& error) {
            const std::string reason = error.what();
            EXPECT_TRUE(reason.starts_with(path + ":")) << reason;
            return reason.substr(path.size() + 1);
        }
        return "none";
    }

    std::string folder{mkdtemp(std::string("/tmp/recording.XXXXXX").data())};
    std::string path = folder + "/cell.rec";
};

TEST_F(RecordingTest, HasTheEventsOfEachMasterWithTheirLines) {
    const Recording recording = Read(
        "pellix-recording 1\n"
        "# two masters\n"
        "0 0 plug\n"
        "\n"
        "0 2 plug\n"
        "0.1 2 > ID?\\n\n"
        "  # and a reason\n"
        "0.1 0 hangup\n"
        "0.2 0 unplug\n"
        "0.2 0 plug\n"
        "# the end");
    ASSERT_EQ(recording.masters.size(), 2U);
    const auto& first = recording.masters.at(0);
    ASSERT_EQ(first.size(), 4U);
    EXPECT_EQ(first[0].line, 3U);
    EXPECT_EQ(first[1].kind, RecordedKind::HangUp);
    EXPECT_EQ(first[3].line, 10U);
    const auto& second = recording.masters.at(2);
    ASSERT_EQ(second.size(), 2U);
    EXPECT_EQ(second[1].bytes, "ID?\n");
    EXPECT_EQ(second[1].line, 6U);
}

TEST_F(RecordingTest, LinesMayEndAsInOtherSystems) {
    const Recording recording = Read("pellix-recording 1\r\n\r\n0 0 plug\r\n0 0 < A\\n\r\n");
    EXPECT_EQ(recording.masters.at(0).back().bytes, "A\n");
}

TEST_F(RecordingTest, TimesOfDifferentMastersAreApart) {
    EXPECT_NO_THROW(Read("pellix-recording 1\n2 0 plug\n1 1 plug\n2 0 unplug\n"));
}

TEST_F(RecordingTest, WhatCannotBeIsRefusedWithLineAndReason) {
    const std::string header = "pellix-recording 1\n";
    const std::vector<std::pair<std::string, std::string>> wrongs{
        {"", "1: a recording of this version begins with 'pellix-recording 1'"},
        {"pellix-recording 10\n0 0 plug\n",
         "1: a recording of this version begins with 'pellix-recording 1'"},
        {header + "# nothing\n", "3: nothing is recorded"},
        {header + "0 0 plug\n1 0 < A",
         "3: the file ends without a line feed; it may have been cut off"},
        {header + "0 0 plug\n1 0 < \033[2J\n", "3: a byte that is no plain text"},
        {header + std::string("0 0 plug\n1 0 < \0\n", 17), "3: a byte that is no plain text"},
        {"0 0 plug\n", "1: a recording of this version begins with 'pellix-recording 1'"},
        {"pellix-recording 2\n", "1: a recording of this version begins with 'pellix-recording 1'"},
        {header + "0 0 plug\n\nnow 0 unplug\n", "4: not a number: 'now'"},
        {header + "0 0 > A\n", "2: the master is not plugged in"},
        {header + "0 0 unplug\n", "2: the master is not plugged in"},
        {header + "0 0 hangup\n", "2: the master is not plugged in"},
        {header + "0 0 plug\n1 0 plug\n", "3: the master is plugged in already"},
        {header + "0 0 plug\n1 0 < A\n1 0 plug\n", "4: the master is plugged in already"},
        {header + "0 0 plug\n1 0 unplug\n1 0 < A\n", "4: the master is not plugged in"},
        {header + "0 0 plug\n1 0 unplug\n1 0 hangup\n", "4: the master is not plugged in"},
        {header + "0 0 plug\n1 0 hangup\n1 0 > A\n", "4: the master is not plugged in"},
        {header + "2 0 plug\n1.9 0 > A\n", "3: the time goes back behind that of line 2"},
    };
    for (const auto& [text, reason] : wrongs) {
        EXPECT_EQ(ReasonAgainst(text), reason) << text;
    }
}

TEST_F(RecordingTest, AFileThatCannotBeReadIsNamed) {
    for (const std::string& name : {folder, folder + "/none"}) {
        try {
            ReadRecording(name);
            ADD_FAILURE() << name;
        } catch (const std::runtime_error& error) {
            EXPECT_EQ(error.what(), "cannot read " + name);
        }
    }
}

TEST_F(RecordingTest, AFileWithoutEndIsNotReadToItsEnd) {
    EXPECT_THROW(ReadRecording("/dev/zero"), std::runtime_error);
}

}  // namespace
}  // namespace simulator
