#include "tools/Printable.h"

#include <gtest/gtest.h>

namespace tavrikctl {
namespace {

TEST(PrintableTest, OrdinaryTextStays) {
    EXPECT_EQ(Printable("HVA SN:1 ~"), "HVA SN:1 ~");
    EXPECT_EQ(Printable("Gr\xc3\xb6\xc3\x9f"
                        "e \xe2\x82\xac"),
              "Gr\xc3\xb6\xc3\x9f"
              "e \xe2\x82\xac");
}

TEST(PrintableTest, ControlCharactersBecomeQuestionMarks) {
    EXPECT_EQ(Printable("a\tb\nc\x1b[31md\x7f"), "a?b?c?[31md?");
    EXPECT_EQ(Printable("\xc2\x9b"
                        "2J\xc2\xa0"),
              "?2J\xc2\xa0");
}

TEST(PrintableTest, ALoneLeadByteAtTheEndStays) {
    EXPECT_EQ(Printable("a\xc2"), "a\xc2");
}

TEST(PrintableTest, CharactersAreCountedNotBytes) {
    EXPECT_EQ(Width(""), 0U);
    EXPECT_EQ(Width("abc"), 3U);
    EXPECT_EQ(Width("\xc3\x9f\xe2\x82\xac"), 2U);
}

}  // namespace
}  // namespace tavrikctl
