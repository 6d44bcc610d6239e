#include "tavrikctl/ScreenParts.h"

#include <algorithm>
#include <chrono>
#include <cmath>

#include "client/Printable.h"

namespace tavrik {

bool IsOverdue(const Observation& latest, Observation::Clock::time_point now) {
    constexpr std::chrono::seconds kLongest(3);  // without a gripper there is one each second
    return now - latest.time > kLongest;
}

std::string Bar(double share, std::size_t width) {
    constexpr std::size_t kBrackets = 2;
    const std::size_t room = width - std::min(width, kBrackets);
    const auto filled = std::lround(share * static_cast<double>(room));
    return "[" + AlignLeft(std::string(static_cast<std::size_t>(filled), '#'), room) + "]";
}

std::vector<StyledText> TitleLines(const std::string& left, const std::string& right,
                                   std::size_t width) {
    const std::size_t used = Width(left) + 1;
    if (used + Width(right) <= width) {
        return {{left + " " + AlignRight(right, width - used)}};
    }
    std::vector<StyledText> lines;
    AddWrapped(lines, left, width);
    return lines;
}

void AddWrapped(std::vector<StyledText>& lines, const std::string& text, std::size_t width,
                bool alarming) {
    constexpr std::size_t kNarrowest = 2;  // columns of a wide character
    if (Width(text) <= width) {
        lines.push_back({text, alarming});
        return;
    }
    for (const std::string& line : Wrap(text, std::max(width, kNarrowest))) {
        lines.push_back({line, alarming});
    }
}

std::vector<StyledText> Cropped(std::vector<StyledText> lines, std::size_t width,
                                std::size_t height) {
    lines.resize(std::min(lines.size(), height));
    for (StyledText& line : lines) {
        line.text = CutToWidth(line.text, width);
    }
    return lines;
}

}  // namespace tavrik
