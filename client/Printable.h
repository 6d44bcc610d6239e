#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace tavrik {

/// `text`, UTF-8, with a question mark for each character without a width, such as control
/// characters, and for invalid UTF-8: a device string must not control the terminal.
std::string Printable(const std::string& text);

/// `text` as one word of a shell command: in quotation marks if it needs them.
std::string ShellWord(const std::string& text);

/// A device string that a person can copy: in quotation marks if it has blanks that a reader would
/// miss.
std::string CopyableName(const std::string& device);

/// How many columns of a terminal printable `text` takes.
std::size_t Width(const std::string& text);

/// Printable `text`, padded with blanks to `width` columns.
std::string AlignLeft(const std::string& text, std::size_t width);
std::string AlignRight(const std::string& text, std::size_t width);

/// The beginning of printable `text` that fits into `width` columns.
std::string CutToWidth(const std::string& text, std::size_t width);

/// Printable `text` in lines of at most `width` (2 or more) columns, broken at blanks, but within
/// quotes or words only if they are longer. At least one line.
std::vector<std::string> Wrap(const std::string& text, std::size_t width);

}  // namespace tavrik
