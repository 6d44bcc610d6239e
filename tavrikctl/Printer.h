#pragma once

#include <cstddef>
#include <nlohmann/json_fwd.hpp>
#include <ostream>
#include <string>
#include <vector>

namespace tavrik {

enum class Align { Left, Right };

/// A line of output or a cell of a table, coloured where colours are enabled.
struct StyledText {
    std::string text;
    bool alarming = false;  ///< red
};

struct Column {
    std::string title;
    Align align = Align::Left;
};

/// Writes the output of a command.
class Printer {
public:
    /// @param columns of the terminal; 0 if there is none: lines may then have any length
    Printer(std::ostream& out, bool colours, std::size_t columns = 0)
        : out(out), colours(colours), columns(columns) {}

    // Each of these writes everything before it returns, or throws a Failure (Failed).

    void Line(const std::string& text);
    void Line(const StyledText& line);

    /// A line of titles, unless all are empty, then the rows, every column as wide as its widest
    /// cell. Where that is too wide for the terminal, each cell gets a line of its own.
    void Table(const std::vector<Column>& titles, const std::vector<std::vector<StyledText>>& rows);

    /// The same, but never with a line for each cell.
    void WideTable(const std::vector<Column>& titles,
                   const std::vector<std::vector<StyledText>>& rows);

    /// One JSON text, indented; ASCII only, so that no string can control the terminal.
    void Json(const nlohmann::ordered_json& json);

    /// Of the terminal; 0 if there is none.
    std::size_t Columns() const { return columns; }

    /// For output that was written directly to the stream.
    void Flush();

private:
    void Stacked(const std::vector<Column>& titles, const std::vector<StyledText>& row);

    std::ostream& out;
    bool colours;
    std::size_t columns;
};

/// Prints a line on standard error that does not change the exit status.
void Warn(const std::string& text);

/// The columns of standard output; 0 if it is not a terminal.
std::size_t TerminalColumns();

/// Whether standard output is a terminal with cursor control.
bool IsOnTerminal();

/// Whether it is also a terminal that may show colours: NO_COLOR disables them.
bool WantsColours();

}  // namespace tavrik
