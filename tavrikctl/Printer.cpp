#include "tavrikctl/Printer.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <string_view>

#include "client/Failure.h"
#include "client/Printable.h"

namespace tavrik {

namespace {

constexpr std::string_view kBold = "\x1b[1m";
constexpr std::string_view kRed = "\x1b[31m";
constexpr std::string_view kPlain = "\x1b[0m";
constexpr std::size_t kGap = 2;  // blanks between columns

using Row = std::vector<Cell>;

std::vector<std::size_t> Widths(const std::vector<Row>& rows) {
    std::vector<std::size_t> widths(rows.front().size());
    for (const Row& row : rows) {
        for (std::size_t i = 0; i < row.size(); ++i) {
            widths[i] = std::max(widths[i], Width(row[i].text));
        }
    }
    return widths;
}

std::string_view EnvironmentText(const char* name) {
    const char* const text = std::getenv(name);  // NOLINT(concurrency-mt-unsafe)
    return text == nullptr ? "" : text;
}

constexpr std::size_t kScreenWidth = 80;  // columns
constexpr std::size_t kSubjectGap = 2;    // between columns
constexpr std::size_t kMarkWidth = 5;     // "wrong"
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

void AddRows(const Finding& finding, std::size_t width, Rows& rows) {
    // Not wrapped if it fits: wrapping replaces several blanks of a name by one.
    auto subjects = Width(finding.subject) <= width ? std::vector{finding.subject}
                                                    : Wrap(finding.subject, width);
    auto texts = Wrap(finding.text, kScreenWidth - kMarkWidth - kSubjectGap - width - kSubjectGap);
    const std::size_t count = std::max(subjects.size(), texts.size());
    subjects.resize(count);
    texts.resize(count);
    const bool wrong = finding.mark == Mark::Wrong;
    for (std::size_t i = 0; i < count; ++i) {
        rows.push_back({{i == 0 ? MarkText(finding.mark) : "", wrong},
                        {Joined(subjects[i], width, texts[i]), wrong}});
    }
}

void AddRemedy(const std::string& remedy, Rows& rows) {
    const std::string title = "do: ";
    const auto lines = Wrap(remedy, kScreenWidth - kMarkWidth - kSubjectGap - title.size());
    for (const std::string& line : lines) {
        const bool isFirst = &line == &lines.front();
        rows.push_back({{}, {(isFirst ? title : std::string(title.size(), ' ')) + line}});
    }
}

}  // namespace

void Printer::Line(const std::string& text) {
    out << text << '\n';
    Flush();
}

void Printer::Line(const Cell& line) {
    const bool isRed = colours && line.alarming;
    out << (isRed ? kRed : "") << line.text << (isRed ? kPlain : "") << '\n';
    Flush();
}

void Printer::Table(const std::vector<Column>& columns, const std::vector<Row>& rows) {
    std::vector<Row> lines(1);
    for (const Column& column : columns) {
        lines.front().push_back({column.title});
    }
    lines.insert(lines.end(), rows.begin(), rows.end());
    const auto widths = Widths(lines);
    for (const Row& row : lines) {
        std::string blanks;  // written before the next text, so that no line ends with blanks
        for (std::size_t i = 0; i < row.size(); ++i) {
            const Cell& cell = row[i];
            const std::string fill(widths[i] - Width(cell.text), ' ');
            const std::string_view colour =
                &row == &lines.front() ? kBold : (cell.alarming ? kRed : std::string_view());
            const bool coloured = colours && !colour.empty() && !cell.text.empty();
            blanks += columns[i].align == Align::Right ? fill : "";
            if (!cell.text.empty()) {
                out << blanks << (coloured ? colour : "") << cell.text << (coloured ? kPlain : "");
                blanks.clear();
            }
            blanks += columns[i].align == Align::Left ? fill : "";
            blanks.append(kGap, ' ');
        }
        out << '\n';
    }
    Flush();
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

bool IsOnTerminal() {
    const std::string_view type = EnvironmentText("TERM");
    return isatty(STDOUT_FILENO) == 1 && !type.empty() && type != "dumb";
}

bool WantsColours() {
    return IsOnTerminal() && EnvironmentText("NO_COLOR").empty();
}

void PrintReport(const Findings& findings, Printer& printer) {
    const Findings joined = JoinEqual(findings);
    const std::size_t width = SubjectWidth(joined);
    Rows rows;
    for (auto each = joined.begin(); each != joined.end(); ++each) {
        AddRows(*each, width, rows);
        const auto next = each + 1;
        const bool isRepeated = next != joined.end() && next->remedy == each->remedy;
        if (!each->remedy.empty() && !isRepeated) {
            AddRemedy(each->remedy, rows);
        }
    }
    printer.Table({{""}, {Joined(kSubjectTitle, width, kTextTitle)}}, rows);
}

}  // namespace tavrik
