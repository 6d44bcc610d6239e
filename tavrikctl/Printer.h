#pragma once

#include <nlohmann/json_fwd.hpp>
#include <ostream>
#include <string>
#include <vector>

#include "doctor/Finding.h"

namespace tavrik {

enum class Align { Left, Right };

/// A piece of output, coloured where colours are enabled.
struct Cell {
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
    Printer(std::ostream& out, bool colours) : out(out), colours(colours) {}

    // Each of these has written everything when it returns, or throws a Failure (Failed).

    void Line(const std::string& text);
    void Line(const Cell& line);

    /// A line of titles, then the rows, every column as wide as its widest cell.
    void Table(const std::vector<Column>& columns, const std::vector<std::vector<Cell>>& rows);

    /// One JSON text, indented; ASCII only, so that no string can control the terminal.
    void Json(const nlohmann::ordered_json& json);

    /// For output that was written directly to the stream.
    void Flush();

private:
    std::ostream& out;
    bool colours;
};

/// Whether standard output is a terminal with cursor control.
bool IsOnTerminal();

/// Whether it is a terminal that may show colours: NO_COLOR forbids them.
bool WantsColours();

/// Prints the findings in 80 columns, each with its remedy below. Consecutive findings share one
/// remedy, and three or more equal ones are printed as one.
void PrintReport(const Findings& findings, Printer& printer);

}  // namespace tavrik
