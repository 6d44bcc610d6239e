#include "tools/TextWrap.h"

#include <sstream>

#include "tools/Printable.h"

namespace tavrikctl {

std::vector<std::string> Wrap(const std::string& text, std::size_t width) {
    std::vector<std::string> lines(1);
    std::istringstream words(text);
    for (std::string word; words >> word;) {
        if (!lines.back().empty() && Width(lines.back()) + 1 + Width(word) > width) {
            lines.emplace_back();
        }
        lines.back() += (lines.back().empty() ? "" : " ") + word;
        while (Width(lines.back()) > width) {
            const std::string begin = Cut(lines.back(), width);
            lines.push_back(lines.back().substr(begin.size()));
            lines[lines.size() - 2] = begin;
        }
    }
    return lines;
}

}  // namespace tavrikctl
