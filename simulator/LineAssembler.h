#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace simulator {

/// Puts lines together from pieces. A line of more than 1024 bytes is dropped whole.
class LineAssembler {
public:
    /// @return the lines that end in `bytes`, without their line feeds
    std::vector<std::string> Add(std::string_view bytes);

    /// True between the beginning of a line and its end.
    bool InsideLine() const { return overlong || !partialLine.empty(); }

    void Clear();

private:
    std::string partialLine;
    bool overlong = false;
};

}  // namespace simulator
