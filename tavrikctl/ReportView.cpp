#include "tavrikctl/ReportView.h"

#include <algorithm>
#include <cstddef>
#include <string>
#include <vector>

#include "client/Printable.h"

namespace tavrik {

namespace {

constexpr std::size_t kReportWidth = 80;   // columns of a report
constexpr std::size_t kNarrowReport = 60;  // columns; below, a finding has lines of its own
constexpr std::size_t kReportGap = 2;      // between columns
constexpr std::size_t kMarkWidth = 5;      // "wrong"
constexpr std::size_t kMaxSubjectWidth = 24;
constexpr const char* kSubjectTitle = "WHAT";
constexpr const char* kTextTitle = "FINDING";

using Rows = std::vector<std::vector<StyledText>>;

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
    return std::min(width, kMaxSubjectWidth);
}

std::string Joined(const std::string& subject, std::size_t width, const std::string& text) {
    return subject +
           (text.empty() ? "" : std::string(width - Width(subject) + kReportGap, ' ') + text);
}

/// @param screen columns of it
/// @param width of the subjects
void AddRows(const Finding& finding, std::size_t screen, std::size_t width, Rows& rows) {
    // Not wrapped if it fits: wrapping replaces several blanks of a name by one.
    auto subjects = Width(finding.subject) <= width ? std::vector{finding.subject}
                                                    : Wrap(finding.subject, width);
    auto texts = Wrap(finding.text, screen - kMarkWidth - kReportGap - width - kReportGap);
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
    const auto lines = RemedyLines(remedy, screen - kMarkWidth - kReportGap - title.size());
    for (const std::string& line : lines) {
        const bool isFirst = &line == &lines.front();
        rows.push_back({{}, {(isFirst ? title : std::string(title.size(), ' ')) + line}});
    }
}

/// Mark and subject first, the finding and what to do below.
void PrintNarrow(const Finding& finding, const std::string& remedy, std::size_t screen,
                 Printer& printer) {
    const bool wrong = finding.mark == Mark::Wrong;
    const std::string margin(kReportGap, ' ');
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

void PrintReport(const Findings& findings, Printer& printer) {
    const Findings joined = JoinEqual(findings);
    const bool isOpen = printer.Columns() == 0;
    const std::size_t screen = isOpen ? kReportWidth : std::min(printer.Columns(), kReportWidth);
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
