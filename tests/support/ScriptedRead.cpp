#include "tests/support/ScriptedRead.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace {

thread_local const std::optional<std::string>* script = nullptr;

}  // namespace

// The linker's names for the wrapped function.
extern "C" {
ssize_t __real_read(int fd, void* buffer, size_t size);  // NOLINT(bugprone-reserved-identifier)
ssize_t __wrap_read(int fd, void* buffer, size_t size);  // NOLINT(bugprone-reserved-identifier)

ssize_t __wrap_read(int fd, void* buffer, size_t size) {
    if (script == nullptr) {
        return __real_read(fd, buffer, size);
    }
    const std::optional<std::string>& text = *std::exchange(script, nullptr);
    if (!text) {
        errno = EIO;
        return -1;
    }
    const std::size_t count = std::min(size, text->size());
    std::copy_n(text->data(), count, static_cast<char*>(buffer));
    return static_cast<ssize_t>(count);
}
}

namespace support {

ScriptedRead::ScriptedRead(std::optional<std::string> text) : result(std::move(text)) {
    script = &result;
}

ScriptedRead::~ScriptedRead() {
    script = nullptr;
}

}  // namespace support
