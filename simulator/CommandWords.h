#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace simulator {

/// The words of one command line, taken one after the other.
class CommandWords {
public:
    explicit CommandWords(std::string_view line) : rest(line) { SkipBlanks(); }

    /// @throws UsageError when there is none left.
    std::string Take();

    std::optional<std::string> TakeIfAny();

    /// Everything that is left, blanks included.
    std::string TakeRest();

    /// @throws UsageError when something is left.
    void End() const;

private:
    void SkipBlanks();

    std::string_view rest;
};

}  // namespace simulator
