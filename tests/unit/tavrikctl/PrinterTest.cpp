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

std::string ReportText(const Findings& findings, bool colours = false) {
    std::ostringstream out;
    Printer printer(out, colours);
    PrintReport(findings, printer);
    return out.str();
}

TEST(ReportTest, ColumnsAreAlignedAndRemediesBelow) {
    EXPECT_EQ(ReportText({{Mark::Ok, "service", "runs", ""},
                          {Mark::Wrong, "port 44221", "no program listens", "start it"}}),
              "       WHAT        FINDING\n"
              "ok     service     runs\n"
              "wrong  port 44221  no program listens\n"
              "       do: start it\n");
}

TEST(ReportTest, ACommandIsOnOneLine) {
    const std::string kCommand =
        "tavrikctl cell save --yes 'a folder/" + std::string(60, 'x') + "'";
    const std::string text = ReportText(
        {{Mark::Wrong, "a", "b", "after the missing ones are plugged in, accept it: " + kCommand},
         {Mark::Wrong, "c", "d",
          "for the reason: journalctl -u tavrikdaemon; then: systemctl "
          "reset-failed tavrikdaemon; systemctl restart tavrikdaemon"}});
    EXPECT_NE(text.find(" accept it:\n           " + kCommand + "\n"), std::string::npos) << text;
    EXPECT_NE(text.find("systemctl restart tavrikdaemon\n"), std::string::npos) << text;
}

TEST(ReportTest, OnANarrowScreenTheFindingIsBelowItsSubject) {
    std::ostringstream out;
    Printer printer(out, false, 20);
    PrintReport({{Mark::Wrong, "port 44221", "no program listens", "start it: TavrikDaemon"},
                 {Mark::Ok, "a name of two lines", "is ok", ""}},
                printer);
    EXPECT_EQ(out.str(),
              "wrong port 44221\n  no program listens\n  do: start it:\n  TavrikDaemon\n"
              "ok a name of two\nlines\n  is ok\n");
}

TEST(ReportTest, WrongFindingsAreRed) {
    const std::string text = ReportText({{Mark::Wrong, "a", "b", "c"},
                                         {Mark::Warning, "d", "e", ""},
                                         {Mark::Unknown, "f", "g", ""}},
                                        true);
    EXPECT_NE(
        text.find("\x1b[31mwrong\x1b[0m  \x1b[31ma     b\x1b[0m\n       do: c\nwarn   d     e\n"
                  "?      f     g\n"),
        std::string::npos)
        << text;
}

TEST(ReportTest, ASharedRemedyIsPrintedOnce) {
    EXPECT_EQ(ReportText({{Mark::Wrong, "a", "b", "cure"},
                          {Mark::Wrong, "c", "d", "cure"},
                          {Mark::Ok, "e", "f", ""},
                          {Mark::Wrong, "g", "h", "cure"}}),
              "       WHAT  FINDING\n"
              "wrong  a     b\n"
              "wrong  c     d\n"
              "       do: cure\n"
              "ok     e     f\n"
              "wrong  g     h\n"
              "       do: cure\n");
}

TEST(ReportTest, EqualFindingsAreJoined) {
    Findings findings{{Mark::Unknown, "x", "other", ""}};
    findings.insert(findings.end(), 8, {Mark::Unknown, "tty", "no master", ""});
    EXPECT_EQ(ReportText(findings),
              "   WHAT  FINDING\n"
              "?  x     other\n"
              "?  tty   no master; 7 more like this\n");
}

TEST(ReportTest, NoLineIsWiderThan80Columns) {
    const std::string text = ReportText(
        {{Mark::Wrong, std::string(100, 's'), std::string(200, 't'), std::string(200, 'u')},
         {Mark::Wrong, "a b", std::string(40, 't') + " " + std::string(40, 'u'), "v w"}});
    std::istringstream lines(text);
    std::size_t longest = 0;
    for (std::string line; std::getline(lines, line);) {
        longest = std::max(longest, line.size());
    }
    EXPECT_EQ(longest, 80U) << text;
}

}  // namespace
}  // namespace tavrik
