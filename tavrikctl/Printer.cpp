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

}  // namespace tavrik
