#include "simulator/CommandWords.h"

#include <algorithm>
#include <utility>

#include "simulator/UsageError.h"

namespace simulator {

namespace {
constexpr std::string_view kBlanks = " \t\r";
}

std::string CommandWords::Take() {
    const auto word = TakeIfAny();
    if (!word) {
        throw UsageError("something is missing");
    }
    return *word;
}

std::optional<std::string> CommandWords::TakeIfAny() {
    if (rest.empty()) {
        return std::nullopt;
    }
    const std::string word(rest.substr(0, rest.find_first_of(kBlanks)));
    rest.remove_prefix(word.size());
    SkipBlanks();
    return word;
}

std::string CommandWords::TakeRest() {
    return std::string(std::exchange(rest, {}));
}

void CommandWords::End() const {
    if (!rest.empty()) {
        throw UsageError("something is left over");
    }
}

void CommandWords::SkipBlanks() {
    rest.remove_prefix(std::min(rest.find_first_not_of(kBlanks), rest.size()));
}

}  // namespace simulator
