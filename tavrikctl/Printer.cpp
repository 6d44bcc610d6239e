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

}  // namespace

void Printer::Line(const std::string& text) {
    out << text << '\n';
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
        std::string blanks;  // held back, so that no line ends with any
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

}  // namespace tavrik
