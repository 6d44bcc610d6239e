#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace simulator {

/// Invalid user input: command line, command or recording. The text gives the reason.
class UsageError : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// Prints a message to the user. Thread-safe.
using Printer = std::function<void(const std::string& text)>;

/// Replaces the escapes \n \r \t \\ \0 and \xHH with their bytes.
/// @throws UsageError for any other escape.
std::string Unescape(std::string_view text);

/// Formats bytes as plain text for Unescape(). Escapes a blank only at the start and at the end.
std::string Escape(std::string_view bytes);

/// @throws UsageError if `text` is not an integer from 0 to `largest`.
unsigned ParseUnsigned(std::string_view text, unsigned largest);

/// @throws UsageError if `text` is not a byte in hexadecimal.
std::uint8_t ParseHexadecimalByte(std::string_view text);

/// @throws UsageError if `text` is not a finite decimal number.
double ParseDecimal(std::string_view text);

/// @return true for `first`, false for `second`
/// @throws UsageError for any other text.
bool ParseChoice(std::string_view text, std::string_view first, std::string_view second);

inline bool ParseOnOff(std::string_view text) {
    return ParseChoice(text, "on", "off");
}

/// The contents of a file.
/// @throws std::runtime_error with its name and the reason
std::string ReadFile(const std::string& path);

/// Splits `text` at every `separator`; an empty text has no parts.
std::vector<std::string> Split(std::string_view text, char separator);

/// The words of a line, read one by one.
class CommandWords {
public:
    explicit CommandWords(std::string_view line) : rest(line) { SkipBlanks(); }

    /// @throws UsageError if there is no more word.
    std::string Take();

    std::optional<std::string> TakeIfAny();

    /// The rest of the line, including its blanks.
    std::string TakeRest();

    /// @throws UsageError if words are left.
    void End() const;

private:
    void SkipBlanks();

    std::string_view rest;
};

}  // namespace simulator
