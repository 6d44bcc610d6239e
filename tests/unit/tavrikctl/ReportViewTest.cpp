#include "tavrikctl/ReportView.h"

#include <gtest/gtest.h>

#include <sstream>

namespace tavrik {
namespace {

std::string ReportText(const Findings& findings, bool colours = false) {
    std::ostringstream out;
    Printer printer(out, colours);
    PrintReport(findings, printer);
    return out.str();
}

TEST(ReportViewTest, ColumnsAreAlignedAndRemediesBelow) {
    EXPECT_EQ(ReportText({{Mark::Ok, "service", "runs", ""},
                          {Mark::Wrong, "port 44221", "no program listens", "start it"}}),
              "       WHAT        FINDING\n"
              "ok     service     runs\n"
              "wrong  port 44221  no program listens\n"
              "       do: start it\n");
}

TEST(ReportViewTest, ACommandIsOnOneLine) {
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

TEST(ReportViewTest, OnANarrowScreenTheFindingIsBelowItsSubject) {
    std::ostringstream out;
    Printer printer(out, false, 20);
    PrintReport({{Mark::Wrong, "port 44221", "no program listens", "start it: TavrikDaemon"},
                 {Mark::Ok, "a name of two lines", "is ok", ""}},
                printer);
    EXPECT_EQ(out.str(),
              "wrong port 44221\n  no program listens\n  do: start it:\n  TavrikDaemon\n"
              "ok a name of two\nlines\n  is ok\n");
}

TEST(ReportViewTest, WrongFindingsAreRed) {
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

TEST(ReportViewTest, ASharedRemedyIsPrintedOnce) {
    EXPECT_EQ(ReportText({{Mark::Wrong, "a", "b", "fix it"},
                          {Mark::Wrong, "c", "d", "fix it"},
                          {Mark::Ok, "e", "f", ""},
                          {Mark::Wrong, "g", "h", "fix it"}}),
              "       WHAT  FINDING\n"
              "wrong  a     b\n"
              "wrong  c     d\n"
              "       do: fix it\n"
              "ok     e     f\n"
              "wrong  g     h\n"
              "       do: fix it\n");
}

TEST(ReportViewTest, EqualFindingsAreJoined) {
    Findings findings{{Mark::Unknown, "x", "other", ""}};
    findings.insert(findings.end(), 8, {Mark::Unknown, "tty", "no master", ""});
    EXPECT_EQ(ReportText(findings),
              "   WHAT  FINDING\n"
              "?  x     other\n"
              "?  tty   no master; 7 more like this\n");
}

TEST(ReportViewTest, NoLineIsWiderThan80Columns) {
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
