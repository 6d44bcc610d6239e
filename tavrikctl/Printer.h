#pragma once

#include <nlohmann/json_fwd.hpp>
#include <ostream>
#include <string>
#include <vector>

namespace tavrik {

enum class Align { Left, Right };

/// A piece of output, coloured where colours are wanted.
struct Cell {
    std::string text;
    bool alarming = false;  ///< red
};

struct Column {
    std::string title;
    Align align = Align::Left;
};

/// What a command writes to standard output.
class Printer {
public:
    Printer(std::ostream& stream, bool withColours) : out(stream), colours(withColours) {}

    // Each of these has written all when it returns, or throws a Failure (Failed).

    void Line(const std::string& text);

    /// A line of titles, then the rows, every column as wide as its widest cell.
    void Table(const std::vector<Column>& columns, const std::vector<std::vector<Cell>>& rows);

    /// One JSON text, indented; all of it ASCII, so that no string can steer the terminal.
    void Json(const nlohmann::ordered_json& json);

    /// For what was written past it.
    void Flush();

private:
    std::ostream& out;
    bool colours;
};

/// Whether standard output is a terminal that can do more than print.
bool IsOnTerminal();

/// Whether it may show colours: NO_COLOR forbids them.
bool WantsColours();

}  // namespace tavrik
