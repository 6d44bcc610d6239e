#include "tavrikctl/Printer.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <nlohmann/json.hpp>
#include <numeric>
#include <string_view>

#include "client/Failure.h"
#include "client/Printable.h"

namespace tavrik {

namespace {

constexpr std::string_view kBold = "\x1b[1m";
constexpr std::string_view kRed = "\x1b[31m";
constexpr std::string_view kPlain = "\x1b[0m";
constexpr std::size_t kGap = 2;  // blanks between columns

using Row = std::vector<StyledText>;

std::vector<std::size_t> Widths(const std::vector<Row>& rows) {
    std::vector<std::size_t> widths(rows.front().size());
    for (const Row& row : rows) {
        for (std::size_t i = 0; i < row.size(); ++i) {
            widths[i] = std::max(widths[i], Width(row[i].text));
        }
    }
    return widths;
}

std::vector<Row> WithTitles(const std::vector<Column>& titles, const std::vector<Row>& rows) {
    std::vector<Row> lines(1);
    for (const Column& column : titles) {
        lines.front().push_back({column.title});
    }
    lines.insert(lines.end(), rows.begin(), rows.end());
    return lines;
}

std::string_view EnvironmentText(const char* name) {
    const char* const text = std::getenv(name);  // NOLINT(concurrency-mt-unsafe)
    return text == nullptr ? "" : text;
}

constexpr std::size_t kWidest = 80;        // columns of a report
constexpr std::size_t kNarrowReport = 60;  // columns; below, a finding has lines of its own
constexpr std::size_t kSubjectGap = 2;     // between columns
constexpr std::size_t kMarkWidth = 5;      // "wrong"
constexpr std::size_t kWidestSubject = 24;
constexpr const char* kSubjectTitle = "WHAT";
constexpr const char* kTextTitle = "FINDING";

using Rows = std::vector<Row>;

bool AreEqual(const Finding& one, const Finding& other) {
    return one.mark == other.mark && one.text == other.text && one.remedy == other.remedy;
}

/// Joins three or more equal findings in a row.
Findings JoinEqual(const Findings& findings) {
    constexpr std::ptrdiff_t kMany = 3;
    Findings joined;
    for (auto first = findings.begin(); first != findings.end();) {
        const auto last = std::find_if(
            first, findings.end(), [&](const Finding& each) { return !AreEqual(each, *first); });
        const std::ptrdiff_t count = last - first;
        if (count < kMany) {
            joined.insert(joined.end(), first, last);
        } else {
            joined.push_back(*first);
            joined.back().text += "; " + std::to_string(count - 1) + " more like this";
        }
        first = last;
    }
    return joined;
}

std::size_t SubjectWidth(const Findings& findings) {
    std::size_t width = std::char_traits<char>::length(kSubjectTitle);
    for (const Finding& finding : findings) {
        width = std::max(width, Width(finding.subject));
    }
    return std::min(width, kWidestSubject);
}

std::string Joined(const std::string& subject, std::size_t width, const std::string& text) {
    return subject +
           (text.empty() ? "" : std::string(width - Width(subject) + kSubjectGap, ' ') + text);
}

/// @param screen columns of it
/// @param width of the subjects
void AddRows(const Finding& finding, std::size_t screen, std::size_t width, Rows& rows) {
    // Not wrapped if it fits: wrapping replaces several blanks of a name by one.
    auto subjects = Width(finding.subject) <= width ? std::vector{finding.subject}
                                                    : Wrap(finding.subject, width);
    auto texts = Wrap(finding.text, screen - kMarkWidth - kSubjectGap - width - kSubjectGap);
    const std::size_t count = std::max(subjects.size(), texts.size());
    subjects.resize(count);
    texts.resize(count);
    const bool wrong = finding.mark == Mark::Wrong;
    for (std::size_t i = 0; i < count; ++i) {
        rows.push_back({{i == 0 ? MarkText(finding.mark) : "", wrong},
                        {Joined(subjects[i], width, texts[i]), wrong}});
    }
}

/// The parts of a remedy that are kept together: each ends with ": " or "; ", so that a command is
/// a part of its own. A part that is wider than `width` is wrapped, except for a command of ours:
/// it must be copied as a whole.
std::vector<std::string> PartsOf(const std::string& remedy, std::size_t width) {
    std::vector<std::string> parts;
    for (std::size_t begin = 0; begin < remedy.size();) {
        const std::size_t mark = std::min(remedy.find(": ", begin), remedy.find("; ", begin));
        const std::size_t end = std::min(mark, remedy.size() - 1) + 1;
        const std::string part = remedy.substr(begin, end - begin);
        if (Width(part) <= width || part.starts_with("tavrikctl ")) {
            parts.push_back(part);
        } else {
            const auto lines = Wrap(part, width);
            parts.insert(parts.end(), lines.begin(), lines.end());
        }
        begin = remedy.find_first_not_of(' ', end);
    }
    return parts;
}

std::vector<std::string> RemedyLines(const std::string& remedy, std::size_t width) {
    std::vector<std::string> lines(1);
    for (const std::string& part : PartsOf(remedy, width)) {
        if (!lines.back().empty() && Width(lines.back()) + 1 + Width(part) > width) {
            lines.emplace_back();
        }
        lines.back() += (lines.back().empty() ? "" : " ") + part;
    }
    return lines;
}

void AddRemedy(const std::string& remedy, std::size_t screen, Rows& rows) {
    const std::string title = "do: ";
    const auto lines = RemedyLines(remedy, screen - kMarkWidth - kSubjectGap - title.size());
    for (const std::string& line : lines) {
        const bool isFirst = &line == &lines.front();
        rows.push_back({{}, {(isFirst ? title : std::string(title.size(), ' ')) + line}});
    }
}

/// Mark and subject first, the finding and what to do below.
void PrintNarrow(const Finding& finding, const std::string& remedy, std::size_t screen,
                 Printer& printer) {
    const bool wrong = finding.mark == Mark::Wrong;
    const std::string margin(kSubjectGap, ' ');
    for (const std::string& line : Wrap(MarkText(finding.mark) + (" " + finding.subject), screen)) {
        printer.Line(StyledText{line, wrong});
    }
    for (const std::string& line : Wrap(finding.text, screen - margin.size())) {
        printer.Line(StyledText{margin + line, wrong});
    }
    if (!remedy.empty()) {
        for (const std::string& line : RemedyLines("do: " + remedy, screen - margin.size())) {
            printer.Line(margin + line);
        }
    }
}

}  // namespace

void Printer::Line(const std::string& text) {
    out << text << '\n';
    Flush();
}

void Printer::Line(const StyledText& line) {
    const bool isRed = colours && line.alarming;
    out << (isRed ? kRed : "") << line.text << (isRed ? kPlain : "") << '\n';
    Flush();
}

void Printer::Table(const std::vector<Column>& titles, const std::vector<Row>& rows) {
    const auto widths = Widths(WithTitles(titles, rows));
    const std::size_t gaps = kGap * (widths.size() - 1);
    if (columns == 0 || std::accumulate(widths.begin(), widths.end(), gaps) <= columns) {
        WideTable(titles, rows);
        return;
    }
    for (const Row& row : rows) {
        Stacked(titles, row);
    }
}

void Printer::WideTable(const std::vector<Column>& titles, const std::vector<Row>& rows) {
    const std::vector<Row> lines = WithTitles(titles, rows);
    const auto widths = Widths(lines);
    for (const Row& row : lines) {
        const bool isTitle = &row == &lines.front();
        if (isTitle && std::ranges::all_of(row, &std::string::empty, &StyledText::text)) {
            continue;
        }
        std::string blanks;  // written before the next text, so that no line ends with blanks
        for (std::size_t i = 0; i < row.size(); ++i) {
            const StyledText& cell = row[i];
            const std::string fill(widths[i] - Width(cell.text), ' ');
            const std::string_view colour =
                isTitle ? kBold : (cell.alarming ? kRed : std::string_view());
            const bool coloured = colours && !colour.empty() && !cell.text.empty();
            blanks += titles[i].align == Align::Right ? fill : "";
            if (!cell.text.empty()) {
                out << blanks << (coloured ? colour : "") << cell.text << (coloured ? kPlain : "");
                blanks.clear();
            }
            blanks += titles[i].align == Align::Left ? fill : "";
            blanks.append(kGap, ' ');
        }
        out << '\n';
    }
    Flush();
}

/// A line for each cell, after its title; the first line begins at the edge.
void Printer::Stacked(const std::vector<Column>& titles, const std::vector<StyledText>& row) {
    constexpr std::size_t kNarrowest = 4;
    for (std::size_t i = 0; i < row.size(); ++i) {
        const std::string margin(i == 0 ? 0 : kGap, ' ');
        const std::string& title = titles[i].title;
        const std::string text = title + (title.empty() ? "" : " ") + row[i].text;
        if (row[i].text.empty()) {
            continue;
        }
        for (const std::string& line : Wrap(text, std::max(columns, kNarrowest) - margin.size())) {
            Line(StyledText{margin + line, row[i].alarming});
        }
    }
}

void Printer::Json(const nlohmann::ordered_json& json) {
    constexpr int kIndent = 2;
    using Handler = nlohmann::ordered_json::error_handler_t;
    out << json.dump(kIndent, ' ', true, Handler::replace) << '\n';
    Flush();
}

void Printer::Flush() {
    if (!out.flush()) {
        throw Failure(ExitStatus::Failed, "failed to write to standard output");
    }
}

void Warn(const std::string& text) {
    std::cerr << "tavrikctl: warning: " << Printable(text) << '\n';
}

std::size_t TerminalColumns() {
    winsize size{};
    const bool isKnown = isatty(STDOUT_FILENO) == 1 &&
                         ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col != 0;
    constexpr std::size_t kLeast = 10;
    return isKnown ? std::max<std::size_t>(size.ws_col, kLeast) : 0;
}

bool IsOnTerminal() {
    const std::string_view type = EnvironmentText("TERM");
    return isatty(STDOUT_FILENO) == 1 && !type.empty() && type != "dumb";
}

bool WantsColours() {
    return IsOnTerminal() && EnvironmentText("NO_COLOR").empty();
}

void PrintReport(const Findings& findings, Printer& printer) {
    const Findings joined = JoinEqual(findings);
    const bool isOpen = printer.Columns() == 0;
    const std::size_t screen = isOpen ? kWidest : std::min(printer.Columns(), kWidest);
    const std::size_t width = SubjectWidth(joined);
    Rows rows;
    for (auto each = joined.begin(); each != joined.end(); ++each) {
        const auto next = each + 1;
        const bool isRepeated = next != joined.end() && next->remedy == each->remedy;
        const std::string remedy = isRepeated ? "" : each->remedy;
        if (screen < kNarrowReport) {
            PrintNarrow(*each, remedy, screen, printer);
            continue;
        }
        AddRows(*each, screen, width, rows);
        if (!remedy.empty()) {
            AddRemedy(remedy, screen, rows);
        }
    }
    if (!rows.empty()) {
        printer.WideTable({{""}, {Joined(kSubjectTitle, width, kTextTitle)}}, rows);
    }
}

}  // namespace tavrik
