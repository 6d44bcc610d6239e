#include "tavrikctl/ProgressLine.h"

#include <unistd.h>

#include <iostream>
#include <utility>

namespace tavrik {

ProgressLine::ProgressLine(std::string text) : text(std::move(text)) {
    (*this)(0);
}

ProgressLine::~ProgressLine() {
    if (!shown.empty()) {
        std::cerr << '\r' << std::string(shown.size(), ' ') << '\r' << std::flush;
    }
}

void ProgressLine::operator()(double part) {
    constexpr double kPercent = 100;
    const std::string line = text + " " + std::to_string(static_cast<int>(part * kPercent)) + " %";
    if (line != shown && isatty(STDERR_FILENO) == 1) {
        std::cerr << '\r' << line << std::flush;
        shown = line;
    }
}

}  // namespace tavrik
