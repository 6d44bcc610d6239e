#include "tavrikctl/Printer.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <sstream>

namespace tavrik {
namespace {

std::string TableText(bool colours) {
    std::ostringstream out;
    Printer(out, colours)
        .Table({{"NAME"}, {"N", Align::Right}, {"NOTE"}},
               {{{"\xc3\xa4"}, {"7"}, {"", false}}, {{"longer"}, {"-12"}, {"hot", true}}});
    return out.str();
}

TEST(PrinterTest, ColumnsAreAlignedAndNoLineEndsWithBlanks) {
    EXPECT_EQ(TableText(false),
              "NAME      N  NOTE\n"
              "\xc3\xa4         7\n"
              "longer  -12  hot\n");
}

TEST(PrinterTest, ColoursDoNotMoveColumns) {
    EXPECT_EQ(TableText(true),
              "\x1b[1mNAME\x1b[0m      \x1b[1mN\x1b[0m  \x1b[1mNOTE\x1b[0m\n"
              "\xc3\xa4         7\n"
              "longer  -12  \x1b[31mhot\x1b[0m\n");
}

TEST(PrinterTest, ATableThatIsTooWideHasALineForEachCell) {
    std::ostringstream out;
    Printer(out, false, 12)
        .Table({{"NAME"}, {"N", Align::Right}, {""}},
               {{{"a gripper"}, {"7"}, {"is hot, very"}}, {{"b"}, {"8"}, {""}}});
    EXPECT_EQ(out.str(), "NAME a\ngripper\n  N 7\n  is hot,\n  very\nNAME b\n  N 8\n");
}

TEST(PrinterTest, ATableMayHaveNoTitles) {
    std::ostringstream out;
    Printer(out, true).Table({{""}, {""}}, {{{"a"}, {"1"}}});
    EXPECT_EQ(out.str(), "a  1\n");
}

TEST(PrinterTest, JsonIsIndentedValidAndAscii) {
    std::ostringstream out;
    Printer(out, true).Json({{"name", "a\x80\x7f"}});
    EXPECT_EQ(out.str(), "{\n  \"name\": \"a\\ufffd\\u007f\"\n}\n");
}

}  // namespace
}  // namespace tavrik
