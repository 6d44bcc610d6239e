#include "client/Printable.h"

#include <gtest/gtest.h>

namespace tavrik {
namespace {

constexpr const char* kUmlaut = "\xc3\xa4";
constexpr const char* kWide = "\xe4\xb8\xad";  // U+4E2D, two columns

TEST(PrintableTest, OrdinaryTextIsUnchanged) {
    for (const char* const text : {"HVA SN:1 ~", kUmlaut, kWide, "\xc2\xa0"}) {
        EXPECT_EQ(Printable(text), text);
    }
}

TEST(PrintableTest, ControlCharactersBecomeQuestionMarks) {
    EXPECT_EQ(Printable("a\tb\nc\x1b[31md\x7f"), "a?b?c?[31md?");
    EXPECT_EQ(Printable(std::string("a\0b", 3)), "a?b");
    EXPECT_EQ(Printable("\xc2\x9b"
                        "2J"),
              "?2J");
}

TEST(PrintableTest, InvisibleCharactersBecomeQuestionMarks) {
    EXPECT_EQ(Printable("a\xe2\x80\x8b z"), "a? z");  // U+200B, like those that turn a line around
}

TEST(PrintableTest, InvalidUtf8BecomesQuestionMarks) {
    EXPECT_EQ(Printable("a\xff z\xc2"), "a? z?");
}

TEST(PrintableTest, ColumnsAreCounted) {
    EXPECT_EQ(Width(""), 0U);
    EXPECT_EQ(Width("abc"), 3U);
    EXPECT_EQ(Width(kUmlaut), 1U);
    EXPECT_EQ(Width(kWide), 2U);
}

TEST(PrintableTest, TextIsCutBetweenCharacters) {
    const std::string text = std::string("ab") + kUmlaut + kWide + "c";
    EXPECT_EQ(CutToWidth(text, 0), "");
    EXPECT_EQ(CutToWidth(text, 3), std::string("ab") + kUmlaut);
    EXPECT_EQ(CutToWidth(text, 4), std::string("ab") + kUmlaut);
    EXPECT_EQ(CutToWidth(text, 5), std::string("ab") + kUmlaut + kWide);
    EXPECT_EQ(CutToWidth(text, 100), text);
}

using Lines = std::vector<std::string>;

TEST(TextWrapTest, LinesBreakAtBlanks) {
    EXPECT_EQ(Wrap("one two three", 7), (Lines{"one two", "three"}));
    EXPECT_EQ(Wrap("one two three", 6), (Lines{"one", "two", "three"}));
}

TEST(TextWrapTest, ALongWordIsCut) {
    EXPECT_EQ(Wrap("a bbbbbb c", 4), (Lines{"a", "bbbb", "bb c"}));
    EXPECT_EQ(Wrap("abcde", 2), (Lines{"ab", "cd", "e"}));
}

TEST(TextWrapTest, AQuotedNameIsNotBrokenIfItFits) {
    EXPECT_EQ(Wrap("run x 'HVA  SN:1'; y", 13), (Lines{"run x", "'HVA  SN:1';", "y"}));
    EXPECT_EQ(Wrap("the gripper's plug, 'it'\\''s 1'", 20),
              (Lines{"the gripper's plug,", "'it'\\''s 1'"}));
    EXPECT_EQ(Wrap("a 'HVA SN:1'", 5), (Lines{"a", "'HVA", "SN:1'"}));
    EXPECT_EQ(Wrap("'open to the end", 7), (Lines{"'open", "to the", "end"}));
}

TEST(TextWrapTest, CharactersAreNotSplit) {
    EXPECT_EQ(Wrap("\xc3\xa4\xc3\xb6\xe2\x82\xac", 2), (Lines{"\xc3\xa4\xc3\xb6", "\xe2\x82\xac"}));
}

TEST(TextWrapTest, EmptyTextIsOneLine) {
    EXPECT_EQ(Wrap("", 5), (Lines{""}));
}

TEST(PrintableTest, AWordOfAShellCommandIsQuotedIfNecessary) {
    EXPECT_EQ(ShellWord("SN:100001"), "SN:100001");
    EXPECT_EQ(ShellWord("HVA  SN:1"), "'HVA  SN:1'");
    EXPECT_EQ(ShellWord("it's $HOME"), R"('it'\''s $HOME')");
    EXPECT_EQ(ShellWord(""), "''");
}

}  // namespace
}  // namespace tavrik
