#include "bench/ExpectedValue.h"

#include <charconv>

namespace bench {

namespace {

std::optional<double> ParseNumber(std::string_view text) {
    double number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size()) {
        return std::nullopt;
    }
    return number;
}

/// What is between the first <value> and the first </value>, if there is no other <value>.
std::optional<std::string_view> OnlyValue(std::string_view body) {
    constexpr std::string_view kOpening = "<value>";
    const std::size_t opening = body.find(kOpening);
    if (opening == std::string_view::npos) {
        return std::nullopt;
    }
    body.remove_prefix(opening + kOpening.size());
    const std::size_t closing = body.find("</value>");
    if (closing == std::string_view::npos || body.find(kOpening) != std::string_view::npos) {
        return std::nullopt;
    }
    return body.substr(0, closing);
}

/// What is between the tags of the type; a value without any is a string.
std::string_view WithoutType(std::string_view value) {
    if (!value.starts_with('<') || !value.ends_with('>')) {
        return value;
    }
    value.remove_prefix(value.find('>') + 1);
    return value.substr(0, value.rfind('<'));
}

}  // namespace

ExpectedValue::ExpectedValue(const std::string& content)
    : text(content), number(ParseNumber(content)) {}

bool ExpectedValue::IsOnlyValueOf(std::string_view body) const {
    const std::optional<std::string_view> value = OnlyValue(body);
    if (!value) {
        return false;
    }
    const std::string_view given = WithoutType(*value);
    return given == text || (number && ParseNumber(given) == number);
}

}  // namespace bench
