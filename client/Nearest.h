#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace tavrik {

/// The `candidates` that someone who typed `text` may have meant, the most similar first, at most
/// three; none if there is no similar one. Ignores the case of ASCII letters.
std::vector<std::string> Nearest(std::string_view text, const std::vector<std::string>& candidates);

/// The same as a question for an error message: "; did you mean 'grip'?". Empty if there are none.
std::string DidYouMean(std::string_view text, const std::vector<std::string>& candidates);

}  // namespace tavrik
