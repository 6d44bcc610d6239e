#include "client/Nearest.h"

#include <algorithm>
#include <cstddef>
#include <map>
#include <numeric>

namespace tavrik {

namespace {

std::string Lower(std::string_view text) {
    std::string lower(text);
    std::ranges::transform(lower, lower.begin(), [](char letter) {
        return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
    });
    return lower;
}

/// How many letters must be inserted, deleted or replaced to turn `one` into `other`.
std::size_t Distance(const std::string& one, const std::string& other) {
    std::vector<std::size_t> row(other.size() + 1);
    std::iota(row.begin(), row.end(), 0U);
    for (const char letter : one) {
        std::size_t diagonal = row[0]++;
        for (std::size_t j = 0; j < other.size(); ++j) {
            const std::size_t replaced = diagonal + (letter == other[j] ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({row[j] + 1, diagonal + 1, replaced});
        }
    }
    return row.back();
}

}  // namespace

std::vector<std::string> Nearest(std::string_view text,
                                 const std::vector<std::string>& candidates) {
    constexpr std::size_t kLongest = 100;  // longer texts are not typing errors
    constexpr std::size_t kLettersPerError = 3;
    constexpr std::size_t kMost = 3;
    std::multimap<std::size_t, std::string> found;
    const std::string typed = Lower(text.substr(0, kLongest));
    for (const std::string& candidate : candidates) {
        const std::string lower = Lower(candidate);
        const std::size_t distance = Distance(typed, lower);
        const bool isBeginning = typed.size() > 1 && lower.starts_with(typed);
        if (isBeginning || distance <= std::max(typed.size(), lower.size()) / kLettersPerError) {
            found.emplace(distance, candidate);
        }
    }
    std::vector<std::string> nearest;
    for (const auto& [distance, candidate] : found) {
        if (nearest.size() < kMost) {
            nearest.push_back(candidate);
        }
    }
    return nearest;
}

std::string DidYouMean(std::string_view text, const std::vector<std::string>& candidates) {
    std::string question;
    for (const std::string& candidate : Nearest(text, candidates)) {
        question += (question.empty() ? "; did you mean '" : " or '") + candidate + "'";
    }
    return question.empty() ? "" : question + "?";
}

}  // namespace tavrik
