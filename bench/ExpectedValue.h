#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace bench {

/// The value that every answer has to hold.
class ExpectedValue {
public:
    /// @param content as between the tags of the value's type; a number equals every spelling of it
    explicit ExpectedValue(const std::string& content);

    /// @param body XML of a whole answer
    /// @return whether it holds one value and no other, and that is the expected one
    bool IsOnlyValueOf(std::string_view body) const;

private:
    std::string text;
    std::optional<double> number;  // when the text is one
};

}  // namespace bench
