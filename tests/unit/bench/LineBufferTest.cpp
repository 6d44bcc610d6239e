#include "bench/LineBuffer.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace bench {

class LineBufferTest : public testing::Test {
protected:
    std::vector<std::string> Take(const std::string& text) {
        std::vector<std::string> lines;
        text.copy(buffer.Room(), LineBuffer::kReadSize);
        buffer.Take(text.size(), [&lines](std::string_view line) { lines.emplace_back(line); });
        return lines;
    }

    using Lines = std::vector<std::string>;
    LineBuffer buffer;
};

TEST_F(LineBufferTest, HandsOutWholeLines) {
    EXPECT_EQ(Take("one\n\nthree\n"), (Lines{"one", "", "three"}));
    EXPECT_EQ(Take(""), Lines{});
}

TEST_F(LineBufferTest, KeepsWhatIsNotWhole) {
    EXPECT_EQ(Take("one\ntw"), Lines{"one"});
    EXPECT_EQ(Take("o"), Lines{});
    EXPECT_EQ(Take("\nthree\nf"), (Lines{"two", "three"}));
    EXPECT_EQ(Take("our\n"), Lines{"four"});
}

TEST_F(LineBufferTest, HasRoomForAWholeReadBehindTheLongestLine) {
    const std::string longest(1024, 'x');
    EXPECT_EQ(Take(longest), Lines{});
    const std::string full = std::string(LineBuffer::kReadSize - 1, 'y') + "\n";
    EXPECT_EQ(Take(full), Lines{longest + full.substr(0, full.size() - 1)});
}

TEST_F(LineBufferTest, ALineThatIsTooLongLosesItsBeginning) {
    EXPECT_EQ(Take(std::string(1025, 'x')), Lines{});
    EXPECT_EQ(Take("end\nnext\n"), (Lines{"end", "next"}));
}

}  // namespace bench
