#include "bench/PlainReader.h"

#include <termios.h>
#include <unistd.h>

#include <cstddef>

#include "bench/OpenTty.h"

namespace bench {

PlainReader::PlainReader(const std::string& path) : tty(OpenTty(path)) {}

void PlainReader::Run(const std::atomic<bool>& stopping) {
    while (!stopping.load(std::memory_order_relaxed)) {
        const ssize_t count = read(tty.Get(), buffer.Room(), LineBuffer::kReadSize);
        if (count > 0) {
            buffer.Take(static_cast<std::size_t>(count),
                        [this](std::string_view line) { TakeLine(line); });
        } else if (termios settings{}; tcgetattr(tty.Get(), &settings) == -1) {
            return;  // hung up, or else it was silent
        }
    }
}

void PlainReader::TakeLine(std::string_view line) {
    ++lines;
    if (!DecodeProcessInput(line, latest) && synchronised) {
        ++wrong;
    }
    synchronised = true;
}

}  // namespace bench
