#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <string_view>

#include "bench/LineBuffer.h"
#include "bench/ProcessInput.h"
#include "simulator/FileDescriptor.h"

namespace bench {

/// Splits what one master sends into lines and decodes its process data: no reader does with less.
class PlainReader {
public:
    /// Opens the tty.
    /// @throws std::system_error
    explicit PlainReader(const std::string& path);

    /// Reads until `stopping`, which it looks at once a second at least, or until the tty is hung
    /// up.
    void Run(const std::atomic<bool>& stopping);

    /// What Run() has read; for after its end.
    std::uint64_t Lines() const { return lines; }
    std::uint64_t WrongLines() const { return wrong; }

private:
    void TakeLine(std::string_view line);

    simulator::FileDescriptor tty;
    LineBuffer buffer;
    ProcessInput latest{};
    bool synchronised =
        false;  // false until the first line feed: what is before may be half a line
    std::uint64_t lines = 0;
    std::uint64_t wrong = 0;
};

}  // namespace bench
