#include "simulator/LineAssembler.h"

#include <cstddef>
#include <utility>

namespace simulator {

namespace {
constexpr std::size_t kLongestLine = 1024;
}

std::vector<std::string> LineAssembler::Add(std::string_view bytes) {
    std::vector<std::string> lines;
    for (const char byte : bytes) {
        if (byte == '\n') {
            std::string line = std::exchange(partialLine, {});
            if (!std::exchange(overlong, false)) {
                lines.push_back(std::move(line));
            }
        } else if (partialLine.size() < kLongestLine) {
            partialLine += byte;
        } else {
            overlong = true;
            partialLine.clear();
        }
    }
    return lines;
}

void LineAssembler::Clear() {
    partialLine.clear();
    overlong = false;
}

}  // namespace simulator
